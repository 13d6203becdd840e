#include "support/child_process.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <cstring>

namespace {

constexpr char childVariable[] = "VN_TEST_CHILD";

std::map<std::string, ChildBody>& children() {
    static std::map<std::string, ChildBody> registered;
    return registered;
}

std::vector<std::string> childEnvironment(const std::string& name, const ChildOptions& options) {
    std::map<std::string, std::string> variables;
    for (char** entry = environ; *entry != nullptr; ++entry) {
        const std::string text = *entry;
        const size_t equals = text.find('=');
        variables[text.substr(0, equals)] =
            equals == std::string::npos ? "" : text.substr(equals + 1);
    }
    for (const auto& [key, value] : options.environment) {
        if (value) {
            variables[key] = *value;
        } else {
            variables.erase(key);
        }
    }
    variables[childVariable] = name;
    std::vector<std::string> entries;
    for (const auto& [key, value] : variables) {
        entries.push_back(key + "=" + value);
    }
    return entries;
}

std::vector<char*> pointersTo(std::vector<std::string>& texts) {
    std::vector<char*> pointers;
    for (std::string& text : texts) {
        pointers.push_back(text.data());
    }
    pointers.push_back(nullptr);
    return pointers;
}

[[noreturn]] void startChild(const ChildOptions& options, char** arguments, char** environment,
                             int out, int err) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(out, STDOUT_FILENO);
    dup2(err, STDERR_FILENO);
    if (!options.workingDirectory.empty() && chdir(options.workingDirectory.c_str()) != 0) {
        _exit(126);
    }
    // Not "/proc/self/exe" itself: under valgrind that would start valgrind.
    char program[4096];
    const ssize_t length = readlink("/proc/self/exe", program, sizeof program - 1);
    if (length > 0) {
        program[length] = '\0';
        execve(program, arguments, environment);
    }
    _exit(127);
}

// Reads both pipes until they close; kills the child after the time limit.
void collect(pid_t pid, int out, int err, int timeoutSeconds, ChildResult& result) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(timeoutSeconds);
    pollfd pipes[2] = {{out, POLLIN, 0}, {err, POLLIN, 0}};
    std::string* texts[2] = {&result.out, &result.err};
    while (pipes[0].fd >= 0 || pipes[1].fd >= 0) {
        const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(
                              deadline - std::chrono::steady_clock::now())
                              .count();
        if (left <= 0 || poll(pipes, 2, static_cast<int>(left)) == 0) {
            kill(pid, SIGKILL);
            return;
        }
        for (int i = 0; i < 2; ++i) {
            if (pipes[i].fd < 0 || pipes[i].revents == 0) {
                continue;
            }
            char chunk[65536];
            const ssize_t count = read(pipes[i].fd, chunk, sizeof chunk);
            if (count > 0) {
                texts[i]->append(chunk, static_cast<size_t>(count));
            } else if (count == 0 || errno != EINTR) {
                pipes[i].fd = -1;
            }
        }
    }
}

}  // namespace

bool registerChild(const char* name, ChildBody body) {
    return children().emplace(name, body).second;
}

bool runAsChild(int argc, char** argv, int& status) {
    const char* name = getenv(childVariable);
    if (name == nullptr) {
        return false;
    }
    const auto found = children().find(name);
    if (found == children().end()) {
        fprintf(stderr, "no child named %s\n", name);
        status = 125;
        return true;
    }
    const ChildArguments arguments(argv + 1, argv + argc);
    unsetenv(childVariable);
    status = found->second(arguments);
    return true;
}

ChildResult runChild(const std::string& name, const ChildOptions& options) {
    std::vector<std::string> arguments = {name};
    arguments.insert(arguments.end(), options.arguments.begin(), options.arguments.end());
    std::vector<std::string> environment = childEnvironment(name, options);
    const std::vector<char*> argumentPointers = pointersTo(arguments);
    const std::vector<char*> environmentPointers = pointersTo(environment);

    int out[2];
    int err[2];
    ChildResult result;
    if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
        result.err = strerror(errno);
        return result;
    }
    fflush(nullptr);
    const pid_t pid = fork();
    if (pid == 0) {
        startChild(options, const_cast<char**>(argumentPointers.data()),
                   const_cast<char**>(environmentPointers.data()), out[1], err[1]);
    }
    close(out[1]);
    close(err[1]);
    collect(pid, out[0], err[0], options.timeoutSeconds, result);
    close(out[0]);
    close(err[0]);
    int status = 0;
    while (waitpid(pid, &status, 0) < 0 && errno == EINTR) {
    }
    if (WIFEXITED(status)) {
        result.exitStatus = WEXITSTATUS(status);
    } else {
        result.signal = WTERMSIG(status);
    }
    return result;
}
