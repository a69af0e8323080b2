// Runs a target over files, without a fuzzer: fuzz_replay TARGET FILE|FOLDER...
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <vector>

#include <unistd.h>

#include "fuzz/Target.h"

namespace fs = std::filesystem;

namespace {

std::vector<fs::path> FilesOf(int count, char** arguments) {
    std::vector<fs::path> files;
    for (const fs::path path : std::span(arguments, size_t(count))) {
        if (!fs::is_directory(path)) {
            files.push_back(fs::absolute(path));
            continue;
        }
        for (const auto& entry : fs::directory_iterator(path))
            files.push_back(fs::absolute(entry.path()));
    }
    std::sort(files.begin(), files.end());
    return files;
}

std::vector<uint8_t> Read(const fs::path& path) {
    std::ifstream file(path, std::ios::binary);
    if (!file) {
        std::fprintf(stderr, "fuzz_replay: cannot read %s\n", path.c_str());
        std::exit(2);
    }
    return {std::istreambuf_iterator<char>(file), {}};
}

// What the target makes in its temporary folder goes with the run.
class TemporaryFolder {
  public:
    TemporaryFolder() {
        if (!mkdtemp(m_name.data())) std::exit(2);
        setenv("TMPDIR", m_name.c_str(), 1);
    }
    ~TemporaryFolder() {
        std::error_code ignored;
        fs::current_path("/", ignored);
        fs::remove_all(m_name, ignored);
    }

  private:
    std::string m_name = (fs::temp_directory_path() / "replay-XXXXXX").string();
};

void Replay(fuzz::Target target, const std::vector<fs::path>& files) {
    const TemporaryFolder folder;
    for (const fs::path& file : files) {
        const std::vector<uint8_t> bytes = Read(file);
        std::printf("%s\n", file.filename().c_str());
        std::fflush(stdout);
        target(bytes);
    }
}

}  // namespace

int main(int argc, char** argv) {
    const fuzz::Target target = argc > 1 ? fuzz::FindTarget(argv[1]) : nullptr;
    // The target may change the current folder.
    const std::vector<fs::path> files = FilesOf(argc - 2, argv + 2);
    if (!target || files.empty()) {
        std::fputs("usage: fuzz_replay TARGET FILE|FOLDER...\n", stderr);
        return 2;
    }
    Replay(target, files);
    std::printf("%zu inputs of %s: no finding\n", files.size(), argv[1]);
    std::fflush(stdout);
    // Threads of the target that are kept over all inputs still run.
    _exit(0);
}
