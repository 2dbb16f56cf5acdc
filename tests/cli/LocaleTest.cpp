// On a French desktop the C library formats "%.1f" as "48,0": every number Velmora writes for a
// person or a file system must still read as it does under the C locale, byte for byte.
#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <map>
#include <regex>

#include "support/ProgrammeMaterial.h"
#include "support/TestSupport.h"

using namespace velmora::test;
namespace fs = std::filesystem;

namespace {

const std::string cli = VELMORA_CLI_PATH;
const std::string french = "LC_ALL=fr_FR.UTF-8 LANG=fr_FR.UTF-8 ";

// Every file below `folder`, by name, with its text; PDFs as their extracted text. The report
// date is the only thing allowed to differ between two runs.
std::map<std::string, std::string> outputs(const fs::path& folder) {
    std::map<std::string, std::string> files;
    for (const auto& e : fs::directory_iterator(folder)) {
        const std::string name = e.path().filename().string();
        std::string text;
        if (e.path().extension() == ".pdf") {
            text = runCommand("pdftotext -layout " + shellQuote(e.path().string()) + " -").out;
        } else if (e.path().extension() == ".txt") {
            std::ifstream in(e.path(), std::ios::binary);
            text.assign(std::istreambuf_iterator<char>(in), {});
        }
        files[name] = std::regex_replace(text, std::regex(R"(\d\d/\d\d/\d{4} \d\d:\d\d)"), "DATE");
    }
    return files;
}

TEST(FrenchLocale, NamesReportsAndEveryOutputReadAsUnderTheCLocale) {
    ASSERT_EQ(runCommand(french + "locale -k decimal_point").out, "decimal_point=\",\"\n")
        << "the fr_FR.UTF-8 locale is missing: scripts/setup-deps generates it";
    ScratchDir dir;
    writeFloatWav(dir / "mix.wav", programme(Material::dense, 48000, 6.0), 48000);
    const std::string mix = shellQuote((dir / "mix.wav").string());

    std::map<std::string, std::string> said[2];
    std::map<std::string, std::string> written[2];
    for (int run = 0; run < 2; ++run) {
        const std::string env = run == 0 ? "LC_ALL=C " : french;
        const fs::path out = dir / ("out" + std::to_string(run));
        said[run]["batch"] = runCommand(env + cli + " batch " + mix + " -o " + shellQuote((out / "batch").string()) +
                                        " --target -16.5 --txt --pdf")
                                 .out;
        said[run]["multimaster"] = runCommand(env + cli + " multimaster " + mix + " -o " +
                                              shellQuote((out / "multi").string()) + " --norms 0,14 --txt --pdf --lang en")
                                       .out;
        said[run]["master"] = runCommand(env + cli + " master " + mix + " -o " + shellQuote((out / "single/").string()) +
                                         " --target -16.5 --mode conform")
                                  .out;
        said[run]["analyse"] = runCommand(env + cli + " analyse " + mix).out;
        said[run]["json"] = runCommand(env + cli + " analyse --json " + mix).out;
        for (const char* sub : {"batch", "multi", "single"})
            for (auto& [name, text] : outputs(out / sub)) written[run][std::string(sub) + "/" + name] = text;
    }
    // Progress goes to stderr: everything on stdout must match whole.
    for (auto& [what, text] : said[0]) EXPECT_EQ(said[1][what], text) << what;
    EXPECT_NE(said[0]["analyse"].find("48.0 kHz"), std::string::npos) << said[0]["analyse"];
    EXPECT_EQ(written[1], written[0]);
    std::string names;
    for (auto& [name, _] : written[1]) names += name + " ";
    EXPECT_TRUE(std::regex_search(names, std::regex(R"(batch/mix_master_-16\.5LUFS_LRA\d+\.wav )"))) << names;
    EXPECT_TRUE(written[1].count("single/mix_corrige_-16.5LUFS.wav"));
    EXPECT_TRUE(written[1].count("multi/mix_master_Spotify.pdf"));
}

}  // namespace
