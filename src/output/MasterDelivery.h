#pragma once
// From a decoded programme to a master on disk: the chain, the conformity gain through the
// limiter, the write, and the "after" measurement.
//
// The promise to the user: the 4× true peak of the file as written — after any rate
// conversion and bit-depth reduction — never exceeds the ceiling. The limiter aims 0.3 dB
// under it, which is usually enough; when the written samples still come out over, the
// limiter runs again on the same input with its aim lowered by the excess, and the file is
// written again. Only a file that keeps the promise replaces the destination.
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "audio/LoudnessError.h"
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
};

struct DeliveryReport {
    WriteReport written;
    LoudnessResult after;               // of the samples as written, at the output rate
    double maxGR = 0.0;                 // bus compressor, dB
    double protectionAppliedDB = 0.0;   // 0 when the protection compressor was not inserted
    double gainDB = 0.0;                // conformity gain applied by the limiter
    double writtenTruePeakDB = -240.0;  // of the samples in the file
    double extraHeadroomDB = 0.0;       // how far the limiter had to aim under its usual target
    int limiterPasses = 1;
    std::vector<double> afterShortTerm;  // of the samples as written, when asked for
};

// Allocates the rendered copy and the limited copy of the programme (the source stays as it
// is). Fails with tooQuiet when nothing can be measured, or with the writer's errors; a failure
// leaves the destination as it was.
Expected<DeliveryReport> deliverMaster(const Channels& source, double sampleRate, std::span<const double> weights,
                                       const DeliveryRequest& request, const ProgressFn& progress = {});

}  // namespace velmora
