// Runs a fuzz target without libFuzzer: every file of the corpus, then mutations of the files. The
// mutations depend only on a fixed seed and their number, so failures are reproducible.
//
//     NAME_fuzz FOLDER-OR-FILE... [--runs N]
//
// The input of a failed run is kept in the working directory as failed-input.
#include <fcntl.h>
#include <signal.h>
#include <unistd.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <string>
#include <vector>

#include "fuzz/fuzz.h"

extern "C" {
[[gnu::weak]] int LLVMFuzzerInitialize(int* argc, char*** argv);
[[gnu::weak]] void __sanitizer_set_death_callback(void (*callback)());
}

namespace {

constexpr size_t largestInput = 4096;

std::string current;  // the input of this run

void keepInput() {
    const int file = open("failed-input", O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
    const ssize_t written = write(file, current.data(), current.size());
    fputs(written < 0 ? "the input could not be kept\n" : "the input is in failed-input\n", stderr);
    close(file);
}

void keepInputAndDie(int signal) {
    ::signal(signal, SIG_DFL);
    keepInput();
    raise(signal);
}

void run(const std::string& input) {
    current = input;
    LLVMFuzzerTestOneInput(reinterpret_cast<const uint8_t*>(current.data()), current.size());
}

class Mutator {
  public:
    explicit Mutator(const std::vector<std::string>& corpus) : inputs(corpus) {}

    std::string next() {
        std::string input = any();
        for (size_t steps = 1 + below(6); steps > 0; --steps) {
            mutate(input);
        }
        input.resize(std::min(input.size(), largestInput));
        return input;
    }

  private:
    size_t below(size_t limit) { return random() % limit; }
    const std::string& any() { return inputs[below(inputs.size())]; }

    std::string piece(const std::string& whole) {
        const size_t start = below(whole.size() + 1);
        return whole.substr(start, below(std::min<size_t>(whole.size() - start, 64) + 1));
    }

    char interestingByte() {
        static constexpr char bytes[] =
            "\0\1\x7F\x80\xC2\xE2\xED\xF0\xFF\n\r \t\"'\\[]#:,;=.-+0189eExp";
        return bytes[below(sizeof bytes - 1)];
    }

    void mutate(std::string& input) {
        const size_t position = below(input.size() + 1);
        switch (below(7)) {
            case 0:
                input.insert(position, 1, interestingByte());
                break;
            case 1:
                input.insert(position, piece(input));
                break;
            case 2:
                input.insert(position, piece(any()));
                break;
            case 3:
                input.erase(position, 1 + below(16));
                break;
            case 4:
                input.insert(position, 1 + below(64), interestingByte());
                break;
            case 5:
                changeByte(input, position, static_cast<char>(random()));
                break;
            default:
                changeByte(input, position, interestingByte());
                break;
        }
    }

    static void changeByte(std::string& input, size_t position, char byte) {
        if (position < input.size()) {
            input[position] = byte;
        }
    }

    const std::vector<std::string>& inputs;
    std::mt19937_64 random{20240131};
};

std::string readFile(const std::filesystem::path& path) {
    std::ifstream file(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<std::filesystem::path> filesOf(const std::filesystem::path& path) {
    if (!std::filesystem::is_directory(path)) {
        return {path};
    }
    std::vector<std::filesystem::path> files;
    for (const auto& entry : std::filesystem::directory_iterator(path)) {
        files.push_back(entry.path());
    }
    std::sort(files.begin(), files.end());  // the same order everywhere
    return files;
}

void watchForFailures() {
    for (const int signal : {SIGABRT, SIGSEGV, SIGILL, SIGFPE, SIGBUS}) {
        if (__sanitizer_set_death_callback == nullptr || signal == SIGABRT) {
            ::signal(signal, keepInputAndDie);
        }
    }
    if (__sanitizer_set_death_callback != nullptr) {
        __sanitizer_set_death_callback(keepInput);
    }
}

}  // namespace

int main(int argc, char** argv) {
    std::vector<std::string> corpus;
    unsigned long runs = 0;
    for (int i = 1; i < argc; ++i) {
        if (strcmp(argv[i], "--runs") == 0 && i + 1 < argc) {
            runs = strtoul(argv[++i], nullptr, 10);
            continue;
        }
        for (const auto& file : filesOf(argv[i])) {
            corpus.push_back(readFile(file));
        }
    }
    if (corpus.empty()) {
        fprintf(stderr, "usage: %s FOLDER-OR-FILE... [--runs N]\n", argv[0]);
        return 2;
    }
    if (LLVMFuzzerInitialize != nullptr) {
        LLVMFuzzerInitialize(&argc, &argv);
    }
    watchForFailures();
    run("");
    for (const std::string& input : corpus) {
        run(input);
    }
    Mutator mutator(corpus);
    for (unsigned long i = 0; i < runs; ++i) {
        run(mutator.next());
    }
    printf("%zu files and %lu mutations of them\n", corpus.size(), runs);
    return 0;
}
