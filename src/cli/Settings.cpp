#include "cli/Settings.h"

#include <fstream>
#include <sstream>

#include "mastering/ParamRanges.h"
#include "model/MasterParamsJson.h"
#include "norms/Presets.h"

namespace velmora::cli {

namespace {
ChannelLayout parseLayout(const std::string& s) {
    if (s == "auto") return ChannelLayout::autoDetect;
    if (s == "mono") return ChannelLayout::mono;
    if (s == "stereo") return ChannelLayout::stereo;
    if (auto l = channelLayoutFromRaw(s)) return *l;  // "5.1", "7.1.4", "Stéréo" …
    throw UsageError("--layout: expected auto, mono, stereo, 5.1, 5.1.2, 5.1.4, 7.1, 7.1.2 or 7.1.4, not " + s);
}

ChannelOrder parseOrder(const std::string& s) {
    if (s == "smpte") return ChannelOrder::smpte;
    if (s == "film") return ChannelOrder::film;
    if (s == "itu") return ChannelOrder::itu;
    if (s == "aac") return ChannelOrder::aac;
    if (auto o = channelOrderFromRaw(s)) return *o;
    throw UsageError("--order: expected smpte, film, itu or aac, not " + s);
}

GatingMode parseGating(const std::string& s) {
    if (s == "auto") return GatingMode::autoMode;
    if (s == "ebu") return GatingMode::ebuR128;
    if (s == "global") return GatingMode::global;
    if (s == "dialog") return GatingMode::dialog;
    throw UsageError("--gating: expected auto, ebu, global or dialog, not " + s);
}
}  // namespace

MeasureOptions parseMeasureOptions(Args& args) {
    MeasureOptions o;
    if (auto v = args.option("--layout")) o.layout = parseLayout(*v);
    if (auto v = args.option("--order")) o.order = parseOrder(*v);
    if (auto v = args.option("--gating")) o.gating = parseGating(*v);
    if (auto v = args.option("--norm")) {
        o.norm = parseInt(*v, "--norm");
        o.normGiven = true;
        if (o.norm < 0 || o.norm >= int(presets().size()))
            throw UsageError("--norm: expected an index from 0 to " + std::to_string(presets().size() - 1) +
                             " (see velmora-cli norms)");
    }
    return o;
}

MasterParams readParamsFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::stringstream text;
    text << in.rdbuf();
    // std::ifstream rather than QFile: the path's bytes are used as given, UTF-8 or not.
    const auto params = in ? masterParamsFromJson(QByteArray::fromStdString(text.str())) : std::nullopt;
    if (!params) throw UsageError("--params: " + path + " is not a complete chain settings object (35 keys)");
    // A value no control can reach is a mistake in the file, not a setting to guess at.
    const auto wrong = outOfRange(*params);
    if (!wrong.empty()) {
        std::string list;
        for (const auto& w : wrong) list += (list.empty() ? "" : "; ") + describe(w);
        throw UsageError("--params: " + path + ": " + list);
    }
    return *params;
}

BitDepth parseBits(const std::string& v) {
    if (v == "16") return BitDepth::int16;
    if (v == "24") return BitDepth::int24;
    if (v == "32f" || v == "32") return BitDepth::float32;
    throw UsageError("--bits: expected 16, 24 or 32f, not " + v);
}

MasterOptions parseMasterOptions(Args& args, const std::string& command) {
    MasterOptions o;
    o.measure = parseMeasureOptions(args);
    const Preset& norm = presetAt(o.measure.norm);
    o.targetLUFS = norm.lufs;
    o.ceilingDB = norm.ceiling;
    if (auto v = args.option("-o")) o.output = *v;
    else if (auto w = args.option("--output")) o.output = *w;
    else throw UsageError(command + ": -o OUT is required");
    if (auto v = args.option("--target")) o.targetLUFS = parseDouble(*v, "--target");
    if (auto v = args.option("--ceiling")) {
        // A norm that fixes its ceiling is delivered to it or not at all: a master for it with
        // another ceiling would carry the norm's name without meeting it.
        if (o.measure.normGiven && norm.ceilingLocked)
            throw UsageError("Plafond imposé par la norme du preset (non modifiable).");
        o.ceilingDB = parseDouble(*v, "--ceiling");
    }
    if (!(o.targetLUFS > -70.0 && o.targetLUFS < 0.0)) throw UsageError("--target: expected a loudness between -70 and 0 LUFS");
    if (!(o.ceilingDB >= -20.0 && o.ceilingDB <= 0.0)) throw UsageError("--ceiling: expected a ceiling between -20 and 0 dBTP");
    if (auto v = args.option("--mode")) {
        if (*v == "master") o.mode = ProcessMode::master;
        else if (*v == "conform") o.mode = ProcessMode::conform;
        else throw UsageError("--mode: expected master or conform, not " + *v);
    }
    if (auto v = args.option("--params")) o.params = readParamsFile(*v);
    if (o.mode == ProcessMode::conform) o.params = MasterParams{};  // no stage touches the sound
    if (auto v = args.option("--format")) {
        if (*v == "wav") o.format = FileFormat::wav;
        else if (*v == "aiff" || *v == "aif") o.format = FileFormat::aiff;
        else throw UsageError("--format: expected wav or aiff, not " + *v);
        o.formatGiven = true;
    }
    if (auto v = args.option("--bits")) o.depth = parseBits(*v);
    if (auto v = args.option("--rate")) {
        o.outputRate = *v == "origine" || *v == "source" ? 0.0 : parseDouble(*v, "--rate");
        bool offered = false;
        for (const auto& choice : outputRateChoices) offered = offered || choice.hz == o.outputRate;
        if (!offered) throw UsageError("--rate: expected 0 (source rate), 44100, 48000, 88200, 96000, 176400 or 192000");
    }
    return o;
}


}  // namespace velmora::cli
