#pragma once
// From a decoded programme to a master on disk: the chain, the conformity gain through the
// limiter, the write, and the "after" measurement.
//
// Two promises to the user, both kept on the file as written (after any rate conversion and
// bit-depth reduction):
// - its peak stays at or under the ceiling on any meter: the 4× true peak of the measurement,
//   and a finer band-limited reading around the crests (see BandLimitedPeak.h). The limiter
//   reads true peaks and aims 0.3 dB under the ceiling, which nearly always suffices; when the
//   written samples still come out over, the limiter runs again with its aim lowered by the
//   excess, and after three such retries a plain gain cut takes off whatever remains. A master
//   is never refused for its peak, and one that would break the promise never replaces a file.
// - its integrated loudness is the target within ±0.1 LU: when conversion, quantisation or the
//   limiter moved it, the conformity gain is corrected and the master made again (twice at
//   most). When the ceiling would need more than 12 dB of limiting to reach the target, the
//   loudest master it allows is written and the report says the target was missed.
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/LoudnessError.h"
#include "audio/ProgrammeStream.h"
#include "mastering/MasterParams.h"
#include "measurement/LoudnessEngine.h"
#include "output/MasterWriter.h"

namespace velmora {

struct DeliveryRequest {
    double targetLUFS = -23.0;
    double ceilingDB = -1.0;  // dBTP
    MasterParams params;      // default record: conformity gain and limiter only
    WriteRequest write;
    double shortTermCurveStep = 0.0;  // seconds; 0: no curve of the master for the reports
    // The source's standard integrated loudness with these weights, when the caller has it:
    // with every stage of the chain off the programme reaches the limiter as it is, and is not
    // measured a second time.
    std::optional<double> sourceIntegratedLUFS;
    // Its 4× true peak (dBTP), when the caller has it: the loudest gain the ceiling allows is
    // then known without another pass.
    std::optional<double> sourceTruePeakDB;
};

struct DeliveryReport {
    WriteReport written;
    LoudnessResult after;               // of the samples as written, at the output rate
    double maxGR = 0.0;                 // bus compressor, dB
    double protectionAppliedDB = 0.0;   // 0 when the protection compressor was not inserted
    double gainDB = 0.0;                // conformity gain applied by the limiter
    double writtenTruePeakDB = -240.0;  // 4× reading of the samples in the file
    double writtenBandLimitedPeakDB = -240.0;  // the fine reading, where the 4× one came near the ceiling
    double extraHeadroomDB = 0.0;       // how far the limiter had to aim under its usual target
    int limiterPasses = 1;              // files written, the last one kept
    int loudnessCorrections = 0;
    std::vector<double> afterShortTerm;  // of the samples as written, when asked for
    // Set when the ceiling made the target unreachable without more than 12 dB of limiting:
    // the loudest master the ceiling allows was written instead, at this integrated loudness.
    std::optional<double> targetMissedLUFS;
};

// What every report of a master says when its target was missed (targetMissedLUFS), in French
// for the status lines and the reports, in English for the English PDF. Locale-free numbers.
std::string targetMissedText(double lufs);
std::string targetMissedTextEnglish(double lufs);

// Reads the source once per pass, so memory does not grow with the programme's length: with
// every stage of the chain off, the master streams from the source (measured first unless the
// request says its loudness and peak) through the limiter into the file; with the chain on,
// every pass renders the source through it again, after passes that decide the loudness-range
// reduction. Fails with tooQuiet when nothing can be measured,
// with the source's read errors, or with the writer's errors; a failure leaves the destination
// as it was.
Expected<DeliveryReport> deliverMaster(const Programme& source, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress = {});
// The same from samples in memory.
Expected<DeliveryReport> deliverMaster(const Channels& source, double sampleRate, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress = {});

}  // namespace velmora
