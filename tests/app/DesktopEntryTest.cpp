// What the install target lays down for a desktop: the program, its entry in the applications
// menu and its icon, with the entry opening every type Velmora reads.
#include <QMimeDatabase>
#include <fstream>
#include <map>
#include <gtest/gtest.h>

#include "AppTesting.h"
#include "model/Model.h"

namespace velmora::test {
namespace {

// The keys of the [Desktop Entry] group. (QSettings would take ';', the list separator of
// desktop entries, for the start of a comment.)
std::map<std::string, std::string> desktopEntry(const std::filesystem::path& file) {
    std::map<std::string, std::string> keys;
    std::ifstream in(file);
    std::string line, group;
    while (std::getline(in, line)) {
        if (line.empty() || line[0] == '#') continue;
        if (line[0] == '[') group = line;
        else if (const auto eq = line.find('='); group == "[Desktop Entry]" && eq != std::string::npos)
            keys[line.substr(0, eq)] = line.substr(eq + 1);
    }
    return keys;
}

TEST(DesktopEntry, InstalledWithTheProgramAndTheIconAndOpensEveryTypeRead) {
    ScratchDir prefix;
    const auto installed = runCommand(VELMORA_CMAKE " --install " VELMORA_BUILD_DIR " --prefix " +
                                      shellQuote(prefix.path().string()));
    ASSERT_EQ(installed.exitCode, 0) << installed.out << installed.err;
    const auto entry = prefix / "share" / "applications" / "velmora.desktop";
    ASSERT_TRUE(std::filesystem::exists(prefix / "bin" / "velmora"));
    ASSERT_TRUE(std::filesystem::exists(entry));

    if (runCommand("command -v desktop-file-validate").exitCode == 0) {
        const auto valid = runCommand("desktop-file-validate " + shellQuote(entry.string()));
        EXPECT_EQ(valid.exitCode, 0) << valid.out << valid.err;
        EXPECT_EQ(valid.out, "") << "warnings";
    }

    auto keys = desktopEntry(entry);
    EXPECT_EQ(keys["Type"], "Application");
    EXPECT_EQ(keys["Name"], "Velmora");
    EXPECT_EQ(keys["Exec"], "velmora %F");
    EXPECT_EQ(keys["Categories"], "AudioVideo;Audio;");
    EXPECT_TRUE(std::filesystem::exists(prefix / "share" / "icons" / "hicolor" / "scalable" / "apps" /
                                        (keys["Icon"] + ".svg")))
        << keys["Icon"];

    // Each extension the open panel accepts maps to a type the entry declares, by its name or
    // one of its aliases, when the desktop's type database knows it (it may not know CAF).
    const QStringList types = QString::fromStdString(keys["MimeType"]).split(';', Qt::SkipEmptyParts);
    QMimeDatabase mimes;
    for (const QString& extension : Model::acceptedExtensions()) {
        const QMimeType type = mimes.mimeTypeForFile("x." + extension, QMimeDatabase::MatchExtension);
        if (type.isDefault()) continue;
        QStringList names = type.aliases();
        names << type.name();
        const bool declared = std::any_of(names.begin(), names.end(), [&](const QString& n) { return types.contains(n); });
        EXPECT_TRUE(declared) << extension.toStdString() << " is " << names.join(", ").toStdString();
    }
}

}  // namespace
}  // namespace velmora::test
