#include "reports/NormReference.h"

#include <gtest/gtest.h>

#include "reports/ReportSamples.h"

using namespace velmora;

namespace {

LoudnessResult reading(double integrated, double truePeak) { return {integrated, 6.0, truePeak, -15.0, -18.0, {}}; }

std::string verdictOf(const LoudnessResult& after, int norm) {
    const NormVerdict v = normVerdict(after, presetAt(norm));
    constexpr const char* reasons[] = {"OK", "loudness", "peak", "both"};
    return (v.conform ? "pass " : "fail ") + std::string(reasons[std::size_t(v.reason)]);
}

}  // namespace

TEST(NormVerdict, JudgesLoudnessAndPeakAgainstTheNormWithDisplayMargin) {
    EXPECT_EQ(verdictOf(reading(-23.2, -1.0), 0), "pass OK");
    EXPECT_EQ(verdictOf(reading(-23.2, -1.0), 1), "fail peak");
    EXPECT_EQ(verdictOf(reading(-23.24, -0.96), 0), "pass OK");
    EXPECT_EQ(verdictOf(reading(-22.74, -1.0), 0), "fail loudness");
    EXPECT_EQ(verdictOf(reading(-24.9, -2.0), 3), "pass OK");  // US broadcast allows 1 LU
    EXPECT_EQ(verdictOf(reading(-20.0, 0.0), 0), "fail both");
    EXPECT_EQ(verdictOf(reading(test::minusInfinity, test::minusInfinity), 0), "fail both");
    EXPECT_EQ(verdictOf(reading(-23.0, test::minusInfinity), 0), "fail peak");
}

TEST(OfficialReference, EveryNormWithAPublisherPageHasOneAndTheOthersNone) {
    std::string withPage, without;
    for (int i = 0; i < int(presets().size()); ++i)
        (officialReferenceURL(presets()[std::size_t(i)].label) ? withPage : without) += std::to_string(i) + " ";
    EXPECT_EQ(withPage, "0 1 2 3 4 5 6 8 9 10 11 14 15 ");
    EXPECT_EQ(without, "7 12 13 16 17 18 19 20 ");
    // A label naming both the law and the standard behind it leads to the standard's publisher.
    EXPECT_EQ(officialReferenceURL(presetAt(3).label), officialReferenceURL("ATSC"));
}
