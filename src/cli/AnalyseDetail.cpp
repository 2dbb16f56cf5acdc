#include "cli/AnalyseDetail.h"

#include <cmath>

#include "audio/NumberFormat.h"
#include "cli/Text.h"

namespace velmora::cli {

namespace {
std::string csvValue(float v) { return std::isfinite(v) ? formatFixed(double(v), 3) : std::string(); }
}  // namespace

void writeDetailJson(JsonWriter& j, const FileAnalysis& a, const std::vector<std::string>& labels,
                     const EventList& events) {
    j.field("lraLow", a.result.loudnessRangeLow).field("lraHigh", a.result.loudnessRangeHigh);
    j.key("channelsDetail").beginArray();
    for (std::size_t c = 0; c < a.detail.channels.size(); ++c) {
        const auto& ch = a.detail.channels[c];
        j.beginObject()
            .field("label", c < labels.size() ? labels[c] : std::to_string(c + 1))
            .field("loudnessLUFS", ch.loudnessLUFS)
            .field("truePeakDB", ch.truePeakDB)
            .endObject();
    }
    j.endArray();
    j.key("events").beginArray();
    for (const auto& e : events.events) {
        j.beginObject()
            .field("kind", eventKindKey(e.kind))
            .field("start", e.startSeconds)
            .field("end", e.endSeconds)
            .field("value", e.valueDB);
        j.key("channel");
        if (e.channel) j.value(*e.channel);
        else j.null();
        j.endObject();
    }
    j.endArray();
}

void printDetail(std::ostream& out, const FileAnalysis& a, const std::vector<std::string>& labels,
                 const EventList& events) {
    const auto& r = a.result;
    if (r.loudnessRangeLow && r.loudnessRangeHigh)
        out << "LRA entre " << formatOneDecimal(*r.loudnessRangeLow) << " et " << formatOneDecimal(*r.loudnessRangeHigh)
            << " LUFS (S, 10e et 95e centiles)\n";
    if (a.detail.channels.size() > 2) {
        out << "\nCANAUX\n";
        for (std::size_t c = 0; c < a.detail.channels.size(); ++c) {
            const auto& ch = a.detail.channels[c];
            out << "  " << padRight(c < labels.size() ? labels[c] : std::to_string(c + 1), 5) << ' '
                << padLeft(oneDecimalOrDash(ch.loudnessLUFS), 7) << " LUFS  " << padLeft(oneDecimalOrDash(ch.truePeakDB), 6)
                << " dBTP\n";
        }
    }
    out << "\nÉVÉNEMENTS (" << events.events.size() << ")\n";
    if (events.events.empty()) out << "  Aucun dépassement ni écrêtage.\n";
    for (std::size_t i = 0; i < events.events.size() && i < eventsShownInText; ++i)
        out << "  " << eventLine(events.events[i], labels) << '\n';
    if (events.events.size() > eventsShownInText)
        out << "  … et " << events.events.size() - eventsShownInText << " autres\n";
    if (events.notListed > 0) out << "  (" << events.notListed << " passages de plus non relevés)\n";
}

void writeTimelineCsv(std::ostream& out, const LoudnessHistory& h) {
    out << "time,momentary,shortTerm,integrated\n";
    for (std::size_t k = 0; k < h.size(); ++k)
        out << formatFixed(LoudnessHistory::secondsAt(k), 1) << ',' << csvValue(h.momentary[k]) << ','
            << csvValue(h.shortTerm[k]) << ',' << csvValue(h.integrated[k]) << '\n';
}

}  // namespace velmora::cli
