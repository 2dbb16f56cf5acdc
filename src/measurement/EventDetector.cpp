#include "measurement/EventDetector.h"

#include <algorithm>
#include <cmath>
#include <cstdio>

#include "audio/NumberFormat.h"

namespace velmora {

namespace {

double dB(double lin) { return 20.0 * std::log10(std::max(lin, 1e-12)); }

// Runs of every channel, sorted by start, merged when less than the merge gap apart; the merged
// run keeps the channel of its highest reading.
std::vector<PeakRun> mergeChannels(std::vector<PeakRun> runs, std::size_t gap) {
    std::sort(runs.begin(), runs.end(), [](const PeakRun& a, const PeakRun& b) { return a.startFrame < b.startFrame; });
    std::vector<PeakRun> out;
    for (const auto& r : runs) {
        if (!out.empty() && r.startFrame < out.back().endFrame + gap) {
            auto& m = out.back();
            m.endFrame = std::max(m.endFrame, r.endFrame);
            if (r.peakLin > m.peakLin) m.peakLin = r.peakLin, m.channel = r.channel;
        } else {
            out.push_back(r);
        }
    }
    return out;
}

void addRuns(EventList& list, const std::vector<PeakRun>& runs, EventKind kind, double fs) {
    for (const auto& r : runs)
        list.events.push_back({kind, double(r.startFrame) / fs, double(r.endFrame) / fs, dB(r.peakLin), r.channel});
}

// Stretches of readings above `limit`, each from its first reading over to its last.
void addLoudnessOvers(EventList& list, const std::vector<float>& series, double limit, EventKind kind) {
    std::optional<LoudnessEvent> open;
    for (std::size_t k = 0; k <= series.size(); ++k) {
        const bool over = k < series.size() && double(series[k]) > limit;
        if (over) {
            const double t = LoudnessHistory::secondsAt(k);
            if (!open) open = LoudnessEvent{kind, t, t, double(series[k]), std::nullopt};
            open->endSeconds = t;
            open->valueDB = std::max(open->valueDB, double(series[k]));
        } else if (open) {
            list.events.push_back(*open);
            open.reset();
        }
    }
}
}  // namespace

std::size_t EventList::count(EventKind kind) const {
    return std::size_t(std::count_if(events.begin(), events.end(), [&](const LoudnessEvent& e) { return e.kind == kind; }));
}

EventList detectEvents(const ProgrammeDetail& d, const EventLimits& limits) {
    EventList list;
    if (!(d.sampleRate > 0)) return list;
    const auto gap = std::size_t(std::llround(d.sampleRate * runMergeSeconds));
    // The runs kept at the highest level not above the ceiling; those that reach over it are
    // overs. Exact at the kept levels, which include every norm's ceiling.
    std::size_t level = 0;
    for (std::size_t k = 0; k < overLevelsDB.size(); ++k)
        if (overLevelsDB[k] <= limits.ceilingDBTP + 1e-9) level = k;
    const double ceilingLin = std::pow(10.0, limits.ceilingDBTP / 20.0);
    std::vector<PeakRun> overs;
    for (const auto& r : d.overRuns[level])
        if (r.peakLin > ceilingLin) overs.push_back(r);
    addRuns(list, mergeChannels(std::move(overs), gap), EventKind::truePeakOver, d.sampleRate);
    addRuns(list, mergeChannels(d.clipRuns, gap), EventKind::clipping, d.sampleRate);
    list.notListed = d.droppedOverRuns[level] + d.droppedClipRuns;
    if (limits.shortTermMaxLUFS)
        addLoudnessOvers(list, d.history.shortTerm, *limits.shortTermMaxLUFS, EventKind::shortTermOver);
    if (limits.momentaryMaxLUFS)
        addLoudnessOvers(list, d.history.momentary, *limits.momentaryMaxLUFS, EventKind::momentaryOver);
    std::stable_sort(list.events.begin(), list.events.end(),
                     [](const LoudnessEvent& a, const LoudnessEvent& b) { return a.startSeconds < b.startSeconds; });
    return list;
}

std::size_t clippedPassages(const ProgrammeDetail& d) {
    if (!(d.sampleRate > 0)) return 0;
    return mergeChannels(d.clipRuns, std::size_t(std::llround(d.sampleRate * runMergeSeconds))).size();
}

std::string_view eventKindKey(EventKind k) {
    switch (k) {
    case EventKind::truePeakOver: return "truePeakOver";
    case EventKind::clipping: return "clipping";
    case EventKind::shortTermOver: return "shortTermOver";
    case EventKind::momentaryOver: return "momentaryOver";
    }
    return "";
}

std::string_view eventKindText(EventKind k, bool english) {
    switch (k) {
    case EventKind::truePeakOver: return english ? "True-peak over" : "Dépassement TP";
    case EventKind::clipping: return english ? "Clipping" : "Écrêtage";
    case EventKind::shortTermOver: return english ? "Short-term over" : "Dépassement S";
    case EventKind::momentaryOver: return english ? "Momentary over" : "Dépassement M";
    }
    return "";
}

std::string_view eventUnit(EventKind k) {
    switch (k) {
    case EventKind::truePeakOver: return "dBTP";
    case EventKind::clipping: return "dBFS";
    case EventKind::shortTermOver:
    case EventKind::momentaryOver: return "LUFS";
    }
    return "";
}

std::string timecode(double seconds) {
    const auto hundredths = static_cast<long long>(std::floor(std::max(0.0, seconds) * 100.0 + 1e-6));
    char text[32];
    std::snprintf(text, sizeof text, "%02lld:%02lld:%02lld.%02lld", hundredths / 360000, hundredths / 6000 % 60,
                  hundredths / 100 % 60, hundredths % 100);
    return text;
}

std::string eventChannelName(const LoudnessEvent& e, const std::vector<std::string>& labels) {
    if (!e.channel) return {};
    const auto c = std::size_t(*e.channel);
    return c < labels.size() ? labels[c] : std::to_string(c + 1);
}

std::string eventLine(const LoudnessEvent& e, const std::vector<std::string>& labels, bool english) {
    std::string kind(eventKindText(e.kind, english));
    // Accented words are one character on screen but two bytes.
    const auto width = [](const std::string& s) {
        return std::size_t(std::count_if(s.begin(), s.end(), [](char c) { return (static_cast<unsigned char>(c) & 0xC0) != 0x80; }));
    };
    while (width(kind) < 16) kind += ' ';
    std::string value = formatSignedOneDecimal(e.valueDB) + ' ' + std::string(eventUnit(e.kind));
    while (value.size() < 11) value.insert(value.begin(), ' ');
    std::string line = timecode(e.startSeconds) + "  " + kind + value;
    if (const auto name = eventChannelName(e, labels); !name.empty()) line += "  " + name;
    return line;
}

}  // namespace velmora
