#include <gtest/gtest.h>

#include "mastering/MasterParams.h"

using namespace velmora;

namespace {

std::string replaced(std::string s, const std::string& from, const std::string& to) {
    const auto at = s.find(from);
    EXPECT_NE(at, std::string::npos) << from;
    return at == std::string::npos ? s : s.replace(at, from.size(), to);
}

}  // namespace

TEST(MasterParamsJson, WritesAll35KeysInFieldOrderAndReadsThemBack) {
    const std::string json = toJson(MasterParams{});
    EXPECT_EQ(json.substr(0, 40), R"({"eqOn":false,"hpfOn":false,"hpfFreq":40)");
    EXPECT_TRUE(json.ends_with(R"(,"autoProtectComp":true,"autoProtectThresholdDB":1.5,"lraIterative":false})"));
    EXPECT_EQ(std::count(json.begin(), json.end(), ':'), 35);
    EXPECT_EQ(masterParamsFromJson(json), MasterParams{});

    MasterParams p;
    p.eqOn = p.lraIterative = true;
    p.autoProtectComp = false;
    p.hpfFreq = 0.1 + 0.2;  // needs all 17 digits
    p.compThreshold = -18.25;
    p.b2Q = 1e-7;
    p.tHsFreq = 12345.678;
    EXPECT_NE(p, MasterParams{});
    EXPECT_EQ(masterParamsFromJson(toJson(p)), p);
}

TEST(MasterParamsJson, RefusesAMissingKeyAWrongTypeOrBrokenText) {
    const std::string good = toJson(MasterParams{});
    const std::pair<const char*, const char*> edits[] = {
        {R"("lraIterative":false)", R"("lraIterativ":false)"},  // missing key
        {R"("eqOn":false)", R"("eqOn":0)"},
        {R"("hpfFreq":40)", R"("hpfFreq":"40")"},
        {R"("hpfFreq":40)", R"("hpfFreq":true)"},
        {R"("hpfFreq":40)", R"("hpfFreq":null)"},
        {R"("hpfFreq":40)", R"("hpfFreq":[40])"},
        {R"("hpfFreq":40)", R"("hpfFreq":040)"},
        {R"("hpfFreq":40)", R"("hpfFreq":40.)"},
        {R"("hpfFreq":40)", R"("hpfFreq":1e999)"},
        {R"("eqOn":false)", R"("eqOn":false,"eqOn":true)"},
        {R"("eqOn":false)", R"("x":{"y":1},"eqOn":false)"},
        {"}", "}x"},
        {"}", ""},
    };
    for (auto [from, to] : edits) EXPECT_FALSE(masterParamsFromJson(replaced(good, from, to))) << to;
    EXPECT_FALSE(masterParamsFromJson("{}"));
}

TEST(MasterParamsJson, AcceptsWhitespaceEscapesAndUnknownScalarKeys) {
    std::string json = replaced(toJson(MasterParams{}), R"({"eqOn":false,"hpfOn":false,"hpfFreq":40)",
                                "{\n  \"eqOn\" : true ,\t\"hpfOn\":false,\r\n\"hpf\\u0046req\": -4.5E+1");
    json = replaced(json, R"("lsGain")", R"("note":"Pr\u00e9set \"A\"","extra":null,"lsGain")");
    const auto p = masterParamsFromJson(json + "  \n");
    ASSERT_TRUE(p);
    EXPECT_TRUE(p->eqOn);
    EXPECT_EQ(p->hpfFreq, -45.0);
}
