#include "ChildRun.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>

extern char** environ;

namespace velmora::bench {

ChildRun runChild(const std::vector<std::string>& args, const std::string& errPath) {
    std::vector<char*> argv;
    for (const auto& a : args) argv.push_back(const_cast<char*>(a.c_str()));
    argv.push_back(nullptr);
    posix_spawn_file_actions_t actions;
    posix_spawn_file_actions_init(&actions);
    posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDOUT_FILENO, "/dev/null", O_WRONLY, 0);
    posix_spawn_file_actions_addopen(&actions, STDERR_FILENO, errPath.empty() ? "/dev/null" : errPath.c_str(),
                                     O_WRONLY | O_CREAT | O_TRUNC, 0644);
    ChildRun run;
    const auto t0 = std::chrono::steady_clock::now();
    pid_t pid = 0;
    if (posix_spawnp(&pid, argv[0], &actions, nullptr, argv.data(), environ) == 0) {
        struct rusage usage {};
        int status = 0;
        if (wait4(pid, &status, 0, &usage) == pid) {
            run.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
            run.peakRssBytes = double(usage.ru_maxrss) * 1024.0;
        }
    }
    run.seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - t0).count();
    posix_spawn_file_actions_destroy(&actions);
    return run;
}

std::filesystem::path scratchFolder(const char* name) {
    auto dir = std::filesystem::temp_directory_path() / name;
    std::filesystem::remove_all(dir);
    std::filesystem::create_directories(dir);
    return dir;
}

}  // namespace velmora::bench
