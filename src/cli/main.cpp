// velmora-cli: the headless front end over Velmora's measuring and mastering core.
#include <clocale>
#include <cstring>
#include <iostream>
#include <new>

#include "audio/LoudnessError.h"

#include "cli/Commands.h"

namespace {

const char* usage =
    "Usage:\n"
    "  velmora-cli analyse [--json] [--gating auto|ebu|global|dialog] [--layout L] [--order O] [--norm N]\n"
    "                      [--momentary-max LUFS] [--timeline FILE.csv] FILE...\n"
    "  velmora-cli norms [--json]\n"
    "  velmora-cli master FILE -o OUT [--norm N | --target LUFS --ceiling DBTP] [--mode master|conform]\n"
    "                     [--params FILE.json] [--format wav|aiff] [--bits 16|24|32f] [--rate HZ]\n"
    "  velmora-cli batch [FILE_OR_DIR...] [--from-list FILE [--slice I/N]] -o DIR [same options as master]\n"
    "                     [--txt] [--pdf] [--lang fr|en] [--json] [--album]\n"
    "  velmora-cli multimaster FILE -o DIR (--norms 0,3,14 | --group broadcast|streaming | --all)\n"
    "                     [--params FILE.json] [--format wav|aiff] [--bits 16|24|32f] [--rate HZ]\n"
    "                     [--txt] [--pdf] [--lang fr|en]\n"
    "  velmora-cli calibrate -o FILE.wav\n"
    "  velmora-cli ab FILE [--params FILE.json] [--norm N] [--bits 16|24|32f]\n"
    "  velmora-cli devices [--json]\n"
    "  velmora-cli play FILE [--device UID] [--channels L,R] [--params FILE.json] [--loop] [--seek FRACTION]\n"
    "  velmora-cli tone --device UID [--channels L,R]\n"
    "  velmora-cli --version\n"
    "\n"
    "analyse   measures each file (integrated loudness, LRA, momentary and short-term maxima,\n"
    "          true peak, PLR/PSR), tells which of the 21 delivery norms it already meets and\n"
    "          checks the French TV delivery rules. --json prints one object per file per line.\n"
    "          --layout auto|mono|stereo|5.1|5.1.2|5.1.4|7.1|7.1.2|7.1.4, --order smpte|film|itu|aac\n"
    "          (how 6-channel files are weighted), --norm N picks the norm whose gating and unit\n"
    "          apply when --gating is auto (default 0). Events (true-peak overs, clipping, short-term\n"
    "          overs, and momentary overs above --momentary-max) are listed against that norm.\n"
    "          --timeline writes the momentary, short-term and integrated loudness of one file\n"
    "          every 100 ms as CSV.\n"
    "norms     lists the 21 norms with their index, target, ceiling and file tag.\n"
    "master    writes a corrected master: the chain (--params, master mode), the conformity gain to\n"
    "          the norm's target and the true-peak limiter; the file's true peak as written never\n"
    "          exceeds the ceiling. OUT is a file, or a folder for NAME_master_-23LUFS.wav.\n"
    "          Defaults: norm 0, master mode with every stage off, WAV, 24 bits, source rate.\n"
    "batch     masters every readable file (folders are searched for audio and video files) into\n"
    "          DIR as NAME_master_-23LUFS_LRA11.wav; a video gets a .mov with its picture. --txt\n"
    "          and --pdf write the text and PDF reports beside each master (--lang for the PDF).\n"
    "          --from-list FILE adds the files listed in FILE, one per line; --slice I/N keeps every\n"
    "          N-th of them from the I-th (I from 0), the share of task I of N in a job array.\n"
    "          --json prints one object per file per line, every other line going to stderr.\n"
    "          --album brings the files to the target together: the album is measured as one\n"
    "          programme and every file gets the same gain (each its own limiter), lowered for all\n"
    "          when one file would need more than 12 dB of limiting.\n"
    "multimaster writes one master of FILE per chosen norm into DIR, as NAME_master_EBU.wav …\n"
    "calibrate writes the RLL calibration pink noise (500-2000 Hz, -23 LUFS, 30 s, 48 kHz/24-bit).\n"
    "ab        writes NAME_AB_AVANT.wav and NAME_AB_APRES.wav beside FILE: its centred 30 s, untouched\n"
    "          and through the chain, gain and limiter.\n"
    "devices   lists the output devices: JACK clients with playback ports when a JACK server runs\n"
    "          (PipeWire serves one), else ALSA's PCMs; each with its uid, name and numbered channels.\n"
    "          --json prints one object per device per line.\n"
    "play      plays FILE (a video: its sound) on two channels of a device (default: the system's\n"
    "          output, channels 1,2), through the chain's real-time stages when --params is given\n"
    "          (equaliser, bus compressor, tonal equaliser), once or with --loop until Ctrl-C,\n"
    "          from --seek FRACTION (0 to 1) of it. The live meter (momentary, short-term,\n"
    "          integrated, peak) is redrawn on standard error when it is a terminal; its last\n"
    "          reading is printed when playback ends.\n"
    "tone      plays the 2 s 1 kHz test sine (-23 dBFS) on two channels of a device, counted from 1\n"
    "          as devices numbers them (default 1,2), to check the monitoring route.\n"
    "\n"
    "Exit status: 0 success, 1 when any file or report failed, 2 for bad usage, 130 or 143 when\n"
    "Ctrl-C or SIGTERM stopped master, batch or multimaster (what was written is whole).\n";

}  // namespace

int main(int argc, char** argv) {
    // Numbers are formatted without the locale; keep the C library's in step.
    std::setlocale(LC_ALL, "C");
    if (argc < 2 || !std::strcmp(argv[1], "--help") || !std::strcmp(argv[1], "-h") || !std::strcmp(argv[1], "help")) {
        std::cout << usage;
        return argc < 2 ? 2 : 0;
    }
    if (!std::strcmp(argv[1], "--version") || !std::strcmp(argv[1], "-V")) {
        std::cout << "velmora-cli " VELMORA_VERSION "\n";
        return 0;
    }
    const std::string command = argv[1];
    velmora::cli::Args args(argc, argv, 2);
    try {
        if (command == "analyse" || command == "analyze") return velmora::cli::runAnalyse(args);
        if (command == "norms") return velmora::cli::runNorms(args);
        if (command == "master") return velmora::cli::runMaster(args);
        if (command == "calibrate") return velmora::cli::runCalibrate(args);
        if (command == "ab") return velmora::cli::runAB(args);
        if (command == "batch") return velmora::cli::runBatch(args);
        if (command == "multimaster") return velmora::cli::runMultimaster(args);
        if (command == "devices") return velmora::cli::runDevices(args);
        if (command == "play") return velmora::cli::runPlay(args);
        if (command == "tone") return velmora::cli::runTone(args);
        throw velmora::cli::UsageError("unknown command " + command);
    } catch (const velmora::cli::UsageError& e) {
        std::cerr << "velmora-cli: " << e.what() << "\n\n" << usage;
        return 2;
    } catch (const std::bad_alloc&) {
        std::cerr << "velmora-cli: " << velmora::LoudnessError{velmora::LoudnessError::Code::tooLarge}.message() << '\n';
        return 1;
    } catch (const std::exception& e) {
        std::cerr << "velmora-cli: " << e.what() << '\n';
        return 1;
    }
}
