#include <QJsonDocument>
#include <QUuid>
#include <gtest/gtest.h>
#include <limits>

#include "model/MasterParamsJson.h"
#include "model/Presets.h"

namespace velmora {
namespace {

QByteArray replaced(QByteArray text, const QByteArray& from, const QByteArray& to) {
    const auto at = text.indexOf(from);
    EXPECT_GE(at, 0) << from.toStdString();
    return at < 0 ? text : text.replace(at, from.size(), to);
}

MasterParams unusual() {
    MasterParams p;
    p.eqOn = p.lraIterative = true;
    p.autoProtectComp = false;
    p.hpfFreq = 0.1 + 0.2;  // needs all 17 digits
    p.compThreshold = -18.25;
    p.b2Q = 1e-7;
    p.tHsFreq = 12345.678;
    p.sideGain = 1e300;
    return p;
}

TEST(MasterParamsJson, WritesAll35KeysInFieldOrderAndReadsThemBack) {
    const QByteArray json = masterParamsToJson(MasterParams{});
    EXPECT_TRUE(json.startsWith(R"({"eqOn":false,"hpfOn":false,"hpfFreq":40,"lsGain":0,)")) << json.toStdString();
    EXPECT_TRUE(json.endsWith(R"(,"autoProtectComp":true,"autoProtectThresholdDB":1.5,"lraIterative":false})"));
    EXPECT_EQ(json.count(':'), 35);
    EXPECT_EQ(masterParamsFromJson(json), MasterParams{});

    const MasterParams p = unusual();
    ASSERT_NE(p, MasterParams{});
    EXPECT_EQ(masterParamsFromJson(masterParamsToJson(p)), p);
    EXPECT_EQ(masterParamsFromJson(toJsonObject(p)), p);
    EXPECT_EQ(toJsonObject(p).size(), 35);
    EXPECT_EQ(QJsonDocument::fromJson(masterParamsToJson(p)).object(), toJsonObject(p)) << "the text and the object agree";
}

TEST(MasterParamsJson, RefusesAMissingKeyAWrongTypeOrBrokenText) {
    const QByteArray good = masterParamsToJson(MasterParams{});
    const std::pair<QByteArray, QByteArray> edits[] = {
        {R"("lraIterative":false)", R"("lraIterativ":false)"},  // missing key
        {R"("eqOn":false)", R"("eqOn":0)"},
        {R"("eqOn":false)", R"("eqOn":"false")"},
        {R"("hpfFreq":40)", R"("hpfFreq":"40")"},
        {R"("hpfFreq":40)", R"("hpfFreq":true)"},
        {R"("hpfFreq":40)", R"("hpfFreq":null)"},
        {R"("hpfFreq":40)", R"("hpfFreq":[40])"},
        {R"("hpfFreq":40)", R"("hpfFreq":{"value":40})"},
        {R"("hpfFreq":40)", R"("hpfFreq":1e999)"},
        {R"("hpfFreq":40)", R"("hpfFreq":040)"},
        {"}", "}x"},
        {"}", ""},
        {"{", "[{"},
    };
    for (const auto& [from, to] : edits)
        EXPECT_FALSE(masterParamsFromJson(replaced(good, from, to))) << to.toStdString();
    EXPECT_FALSE(masterParamsFromJson(QByteArray("{}")));
    EXPECT_FALSE(masterParamsFromJson(QByteArray()));
    EXPECT_FALSE(masterParamsFromJson(QJsonObject{}));

    MasterParams broken;
    broken.compRatio = std::numeric_limits<double>::infinity();
    broken.midGain = std::numeric_limits<double>::quiet_NaN();
    EXPECT_FALSE(masterParamsFromJson(masterParamsToJson(broken))) << "a value with no JSON form is not read as another";
    EXPECT_FALSE(masterParamsFromJson(toJsonObject(broken)));
    QJsonObject built = toJsonObject(MasterParams{});
    built["hpfFreq"] = std::numeric_limits<double>::infinity();
    EXPECT_FALSE(masterParamsFromJson(built));
}

TEST(MasterParamsJson, AcceptsWhitespaceEscapesAndUnknownKeys) {
    QByteArray json = replaced(masterParamsToJson(MasterParams{}), R"({"eqOn":false,"hpfOn":false,"hpfFreq":40)",
                               "{\n  \"eqOn\" : true ,\t\"hpfOn\":false,\r\n\"hpf\\u0046req\": -4.5E+1");
    json = replaced(json, R"("lsGain")", R"("note":"Pr\u00e9set \"A\"","extra":null,"later":{"x":[1]},"lsGain")");
    const auto p = masterParamsFromJson(json + "  \n");
    ASSERT_TRUE(p);
    EXPECT_TRUE(p->eqOn);
    EXPECT_EQ(p->hpfFreq, -45.0);
}

// User presets keep their settings as a nested object: the values come back exactly, and a
// damaged entry costs only itself.
TEST(MasterParamsJson, StoredPresetsKeepTheSettingsExactly) {
    const std::vector<NamedPreset> presets{{QUuid::createUuid(), "Chaud", unusual()},
                                           {QUuid::createUuid(), "Neutre", MasterParams{}}};
    const QByteArray stored = encodeNamedPresets(presets);
    EXPECT_EQ(decodeNamedPresets(stored), (DecodedList<NamedPreset>{presets, 0}));
    const std::vector<NamedPreset> second{presets[1]};
    EXPECT_EQ(decodeNamedPresets(replaced(stored, R"("compRatio":2,)", "")), (DecodedList<NamedPreset>{second, 1}));
    EXPECT_EQ(decodeNamedPresets(replaced(stored, R"("compRatio":2)", R"("compRatio":"2")")),
              (DecodedList<NamedPreset>{second, 1}));
    EXPECT_FALSE(decodeNamedPresets("not json"));
}

}  // namespace
}  // namespace velmora
