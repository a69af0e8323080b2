// The files by which the KVM agent is led, whatever stands in them.
#include <fstream>
#include <string>

#include "companions/ZELKVMApp/Files.h"
#include "fuzz/Input.h"
#include "fuzz/support/Wire.h"
#include "winhost/pc/Pc.h"

namespace {

constexpr char kPath[] = "C:\\terminate.txt";
constexpr size_t kLongestWord = 128;

struct PcWithFiles {
    PcWithFiles() {
        winhost::PcDescription pc;
        pc.root = fuzz::SocketFolder() + "/pc";
        winhost::Pc::Instance().Reset(pc);
    }
};

}  // namespace

FUZZ_TARGET(agentfile) {
    static const PcWithFiles pc;
    const std::string text = fuzz::TextOf(input);
    std::ofstream(winhost::Pc::Instance().HostPath(kPath)) << text;
    const std::string word = FirstWord(kPath);
    fuzz::Require(word.size() <= kLongestWord, "a word is bounded");
    fuzz::Require(word.find_first_of(" \t\r\n\v\f") == std::string::npos, "a word is one");
    const size_t begin = std::min(text.find_first_not_of(" \t\r\n\v\f"), text.size());
    fuzz::Require(text.compare(begin, word.size(), word) == 0, "a word stands first in its file");
}
