#include "rig/JackRig.h"

#include <dirent.h>
#include <fcntl.h>
#include <signal.h>
#include <sys/file.h>
#include <sys/mman.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <thread>

namespace velmora::rig {

namespace {
void quiet(const char*) {}

// An exclusive lock on /tmp/<name>, held until the descriptor closes or the process dies; -1
// when another holder has it and `wait` is false.
int lockFile(const std::string& name, bool wait) {
    const int fd = ::open(("/tmp/" + name).c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (fd < 0) return -1;
    if (flock(fd, wait ? LOCK_EX : LOCK_EX | LOCK_NB) != 0) {
        ::close(fd);
        return -1;
    }
    return fd;
}

bool anyJackdAlive() {
    for (const auto& entry : std::filesystem::directory_iterator("/proc")) {
        const auto name = entry.path().filename().string();
        if (name.empty() || !std::all_of(name.begin(), name.end(), ::isdigit)) continue;
        std::ifstream comm(entry.path() / "comm");
        std::string command;
        if (std::getline(comm, command) && command == "jackd") return true;
    }
    return false;
}

// libjack keeps a machine-wide registry of eight servers, and a server that dies without
// shutting down (killed with its test, or by a timeout) keeps its entry until one of the same
// name starts again. Names come from a small pool so our own entries are reclaimed; entries
// left by anything else are cleared once no server runs at all, which is what a reboot does.
// Only before this process first talks to JACK: libjack maps the registry once per process.
void clearStaleRegistry() {
    static bool talkedToJack = false;
    if (talkedToJack) return;
    talkedToJack = true;
    if (!anyJackdAlive()) shm_unlink("/jack-shm-registry");
}

// What a killed server of this name left in /dev/shm: its semaphores and socket.
void removeLeftovers(const std::string& server) {
    std::error_code ec;
    for (const auto& entry : std::filesystem::directory_iterator("/dev/shm", ec)) {
        const auto name = entry.path().filename().string();
        const bool semaphore = name.rfind("jack_sem.", 0) == 0 && name.find("_" + server + "_") != std::string::npos;
        const bool socket = name.rfind("jack_" + server + "_", 0) == 0;
        if (semaphore || socket) std::filesystem::remove(entry.path(), ec);
    }
}
}  // namespace

bool waitUntil(const std::function<bool()>& done, std::chrono::milliseconds timeout) {
    const auto deadline = std::chrono::steady_clock::now() + timeout;
    while (!done()) {
        if (std::chrono::steady_clock::now() >= deadline) return done();
        std::this_thread::sleep_for(std::chrono::milliseconds(10));
    }
    return true;
}

PrivateJackServer::PrivateJackServer(Options options) {
    // One server starts at a time on the machine, so the registry is read and cleared safely.
    const int startLock = lockFile("velmora-jack-rig.lock", true);
    for (int slot = 0; slot < 6 && slotLock_ < 0; ++slot) {
        slotLock_ = lockFile("velmora-jack-rig-" + std::to_string(slot) + ".lock", false);
        name_ = "velmora-rig-" + std::to_string(slot);
    }
    start(options);
    if (startLock >= 0) ::close(startLock);
}

void PrivateJackServer::start(Options options) {
    if (slotLock_ < 0) return;  // six servers already run here: a seventh may not find room
    clearStaleRegistry();
    removeLeftovers(name_);
    const std::string rate = std::to_string(options.sampleRate), period = std::to_string(options.periodFrames);
    std::vector<std::string> args = {"jackd"};
    if (options.synchronous) args.push_back("-S");
    args.push_back(options.realtime ? "-R" : "--no-realtime");
    args.insert(args.end(), {"-n", name_, "-d", "dummy", "-r", rate, "-p", period});
    for (const auto& a : args) command_ += (command_.empty() ? "" : " ") + a;
    std::vector<char*> argv;
    for (auto& a : args) argv.push_back(a.data());
    argv.push_back(nullptr);
    // Attempts to connect before the server is up print to stderr: expected here.
    jack_set_error_function(quiet);
    jack_set_info_function(quiet);
    pid_ = fork();
    if (pid_ == 0) {
        prctl(PR_SET_PDEATHSIG, SIGKILL);
        const int null = ::open("/dev/null", O_WRONLY);
        dup2(null, STDOUT_FILENO);
        dup2(null, STDERR_FILENO);
        execvp("jackd", argv.data());
        _exit(127);
    }
    if (pid_ < 0) return;
    running_ = waitUntil(
        [&] {
            int status = 0;
            if (waitpid(pid_, &status, WNOHANG) == pid_) {
                pid_ = -1;
                return true;  // gave up: running_ stays false below
            }
            jack_status_t st{};
            jack_client_t* c = jack_client_open("velmora-rig-wait", JackOptions(JackNoStartServer | JackServerName),
                                                &st, name_.c_str());
            if (!c) return false;
            jack_client_close(c);
            return true;
        },
        std::chrono::seconds(10));
    running_ = running_ && pid_ > 0;
}

PrivateJackServer::~PrivateJackServer() {
    if (pid_ > 0) {
        kill(pid_, SIGTERM);
        int status = 0;
        if (!waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, std::chrono::seconds(5))) {
            kill(pid_, SIGKILL);
            waitpid(pid_, &status, 0);
        }
    }
    if (slotLock_ >= 0) ::close(slotLock_);
}

ProbeClient::ProbeClient(const std::string& server, const std::string& name, int ports, std::size_t capacityFrames) {
    jack_status_t status{};
    const auto options = JackOptions(JackNoStartServer | JackServerName | JackUseExactName);
    client_ = jack_client_open(name.c_str(), options, &status, server.c_str());
    if (!client_) return;
    for (int p = 1; p <= ports; ++p) {
        const std::string port = "in_" + std::to_string(p);
        ports_.push_back(jack_port_register(client_, port.c_str(), JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0));
        buffers_.emplace_back(capacityFrames, 0.0f);
    }
    jack_set_process_callback(client_, &ProbeClient::process, this);
    jack_set_xrun_callback(
        client_,
        [](void* self) {
            ++static_cast<ProbeClient*>(self)->xruns_;
            return 0;
        },
        this);
    if (jack_activate(client_) != 0) {
        close();
        return;
    }
    // Other clients list ports from the graph the server switches to between cycles: until the
    // probe has run once, a program started now may not find it yet.
    waitUntil([&] { return cycles_.load(std::memory_order_acquire) > 0; }, std::chrono::seconds(5));
}

void ProbeClient::close() {
    if (client_) jack_client_close(client_);
    client_ = nullptr;
}

int ProbeClient::process(jack_nframes_t frames, void* arg) {
    auto& self = *static_cast<ProbeClient*>(arg);
    self.cycles_.fetch_add(1, std::memory_order_release);
    if (self.ports_.empty()) return 0;
    const std::size_t at = self.written_.load(std::memory_order_relaxed);
    const std::size_t n = std::min<std::size_t>(frames, self.buffers_.front().size() - at);
    for (std::size_t p = 0; p < self.ports_.size(); ++p) {
        const auto* in = static_cast<const float*>(jack_port_get_buffer(self.ports_[p], frames));
        std::copy_n(in, n, self.buffers_[p].begin() + std::ptrdiff_t(at));
    }
    self.written_.store(at + n, std::memory_order_release);
    return 0;
}

bool ProbeClient::receiveMore(std::size_t more) const {
    const std::size_t target = frames() + more;
    return waitUntil([&] { return frames() >= target; }, std::chrono::seconds(5));
}

std::vector<std::string> ProbeClient::portNames() const {
    std::vector<std::string> names;
    for (std::size_t p = 1; p <= buffers_.size(); ++p) names.push_back("in_" + std::to_string(p));
    return names;
}

bool ProbeClient::renamePort(int index, const std::string& name) {
    return client_ && jack_port_rename(client_, ports_.at(std::size_t(index)), name.c_str()) == 0;
}

std::vector<float> ProbeClient::recorded(int index) const {
    const auto& b = buffers_.at(std::size_t(index));
    return std::vector<float>(b.begin(), b.begin() + std::ptrdiff_t(frames()));
}

}  // namespace velmora::rig
