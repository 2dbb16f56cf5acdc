#include "rig/JackRig.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cstring>
#include <thread>

namespace velmora::rig {

namespace {
void quiet(const char*) {}
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
    static std::atomic<int> count{0};
    name_ = "velmora-rig-" + std::to_string(getpid()) + "-" + std::to_string(count++);
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
    if (pid_ <= 0) return;
    kill(pid_, SIGTERM);
    int status = 0;
    if (!waitUntil([&] { return waitpid(pid_, &status, WNOHANG) == pid_; }, std::chrono::seconds(5))) {
        kill(pid_, SIGKILL);
        waitpid(pid_, &status, 0);
    }
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
