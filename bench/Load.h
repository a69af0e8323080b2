// What a load's server answers, whatever stands between it and the client: the same behind a TCP port and in
// the simulated firmware.
#pragma once

#include <cstddef>
#include <stdexcept>
#include <string>
#include <vector>

namespace load {

inline constexpr size_t kRequest = 64;
inline constexpr size_t kBlock = 0x20000 - 2;  // the most that one mailbox message carries
inline constexpr size_t kSinkStep = 4 << 20;

enum class Mode { Echo, Sink, Blocks };

inline Mode ModeOf(const std::string& name) {
    if (name == "echo") return Mode::Echo;
    if (name == "sink") return Mode::Sink;
    if (name == "blocks") return Mode::Blocks;
    throw std::invalid_argument("mode " + name);
}

class Answerer {
  public:
    explicit Answerer(Mode mode) : m_mode(mode), m_block(mode == Mode::Blocks ? kBlock : 1) {}

    // Takes bytes of the client's stream and gives the answers that they are worth to `send`.
    template <class Send>
    void Take(const char* data, size_t size, Send send) {
        if (m_mode == Mode::Echo) return send(data, size);
        const size_t step = m_mode == Mode::Sink ? kSinkStep : kRequest;
        for (m_taken += size; m_taken >= step; m_taken -= step)
            send(m_block.data(), m_block.size());
    }

  private:
    Mode m_mode;
    std::vector<char> m_block;
    size_t m_taken = 0;
};

}  // namespace load
