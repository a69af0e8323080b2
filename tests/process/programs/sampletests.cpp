// A GoogleTest program whose second test ends as $SAMPLE_END says: at each try, or with $SAMPLE_TRIED, which
// names a file, only at the first.
#include <gtest/gtest.h>

#include <stdlib.h>
#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <string>

namespace {

std::string Variable(const char* name) {
    const char* value = getenv(name);
    return value ? value : "";
}

std::string HowToEnd() {
    if (const std::string tried = Variable("SAMPLE_TRIED"); !tried.empty()) {
        if (std::filesystem::exists(tried)) return "";
        std::ofstream file(tried);
    }
    return Variable("SAMPLE_END");
}

}  // namespace

TEST(Sample, Passes) {}

TEST(Sample, EndsAsTheEnvironmentSays) {
    const std::string how = HowToEnd();
    if (how == "failure") FAIL() << "as the environment says";
    if (how == "crash") abort();
    if (how == "silence") pause();
    if (how == "late exit") atexit([] { _exit(23); });
}

TEST(Sample, IsSkipped) {
    GTEST_SKIP();
}

TEST(Sample, PassesToo) {}
