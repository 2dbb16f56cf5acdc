#include <chrono>
#include <condition_variable>
#include <iostream>
#include <mutex>

#include "audio/LiveMonitor.h"
#include "audio/TestSine.h"
#include "cli/Commands.h"
#include "cli/Json.h"
#include "cli/Text.h"

namespace velmora::cli {

int runDevices(Args& args) {
    const bool json = args.flag("--json");
    if (!args.positionals().empty()) throw UsageError("devices takes no argument");
    LiveMonitor monitor;
    const auto devices = monitor.listOutputDevices();
    for (const auto& d : devices) {
        if (json) {
            JsonWriter j;
            j.beginObject().field("uid", d.uid).field("name", d.name).field("outputChannels", int(d.outputChannels));
            j.key("channelNames").beginArray();
            for (const auto& name : d.channelNames) j.value(name);
            j.endArray().endObject();
            std::cout << j.str() << '\n';
        } else {
            std::cout << d.uid << "  " << d.name << "  (" << d.outputChannels
                      << (d.outputChannels > 1 ? " canaux)\n" : " canal)\n");
            // Numbered from 1, as --channels counts them.
            for (std::size_t c = 0; c < d.channelNames.size(); ++c)
                std::cout << "  " << padLeft(std::to_string(c + 1), 3) << "  " << d.channelNames[c] << '\n';
        }
    }
    if (devices.empty()) std::cerr << "velmora-cli: no output device found\n";
    return 0;
}

int runTone(Args& args) {
    const auto uid = args.option("--device");
    if (!uid) throw UsageError("tone: --device UID is required (velmora-cli devices lists them)");
    const auto [left, right] = parseChannelPair(args.option("--channels").value_or("1,2"), "--channels");
    if (!args.positionals().empty()) throw UsageError("tone takes no file");

    // Declared before the monitor, whose event thread calls the handler until it is destroyed.
    std::mutex mutex;
    std::condition_variable wake;
    bool changed = false;
    LiveMonitor monitor;
    monitor.setChangeHandler([&] {
        std::lock_guard lock(mutex);
        changed = true;
        wake.notify_all();
    });
    if (const auto error = monitor.configure(*uid, left, right)) {
        std::cout << "Monitoring : " << error->message() << '\n';
        return 1;
    }
    monitor.play(makeTestSine(), testSineSampleRate);
    if (const auto error = monitor.lastError()) {
        std::cout << "Monitoring : " << *error << '\n';
        return 1;
    }
    std::cout << "Test 1 kHz sur " << monitor.currentDeviceName() << " ✓" << std::endl;

    // The tone lasts 2 s; a stream that stops moving (a server frozen) must not hold the shell.
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
    std::unique_lock lock(mutex);
    while (monitor.isPlaying()) {
        if (!wake.wait_until(lock, deadline, [&] { return changed; })) {
            std::cerr << "velmora-cli: the tone did not finish playing\n";
            return 1;
        }
        changed = false;
    }
    if (const auto error = monitor.lastError()) {
        std::cout << *error << '\n';
        return 1;
    }
    return 0;
}

}  // namespace velmora::cli
