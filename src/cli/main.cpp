// velmora-cli: the headless front end over Velmora's measuring and mastering core.
#include <clocale>
#include <cstring>
#include <iostream>

#include "cli/Commands.h"

namespace {

const char* usage =
    "Usage:\n"
    "  velmora-cli analyse [--json] [--gating auto|ebu|global|dialog] [--layout L] [--order O] [--norm N] FILE...\n"
    "  velmora-cli norms [--json]\n"
    "\n"
    "analyse   measures each file (integrated loudness, LRA, momentary and short-term maxima,\n"
    "          true peak, PLR/PSR), tells which of the 21 delivery norms it already meets and\n"
    "          checks the French TV delivery rules. --json prints one object per file per line.\n"
    "          --layout auto|mono|stereo|5.1|5.1.2|5.1.4|7.1|7.1.2|7.1.4, --order smpte|film|itu|aac\n"
    "          (how 6-channel files are weighted), --norm N picks the norm whose gating and unit\n"
    "          apply when --gating is auto (default 0).\n"
    "norms     lists the 21 norms with their index, target, ceiling and file tag.\n"
    "\n"
    "Exit status: 0 success, 1 when any file failed, 2 for bad usage.\n";

}  // namespace

int main(int argc, char** argv) {
    // Numbers are formatted without the locale; keep the C library's in step.
    std::setlocale(LC_ALL, "C");
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "help")) {
        std::cout << usage;
        return argc < 2 ? 2 : 0;
    }
    const std::string command = argv[1];
    velmora::cli::Args args(argc, argv, 2);
    try {
        if (command == "analyse" || command == "analyze") return velmora::cli::runAnalyse(args);
        if (command == "norms") return velmora::cli::runNorms(args);
        throw velmora::cli::UsageError("unknown command " + command);
    } catch (const velmora::cli::UsageError& e) {
        std::cerr << "velmora-cli: " << e.what() << "\n\n" << usage;
        return 2;
    } catch (const std::exception& e) {
        std::cerr << "velmora-cli: " << e.what() << '\n';
        return 1;
    }
}
