// The memory of pictures and packets, which is used again and again.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <vector>

namespace luxrt {

class Block {
  public:
    Block() = default;
    Block(const Block&) = delete;
    Block& operator=(const Block&) = delete;
    virtual ~Block() = default;

    virtual uint8_t* Bytes() = 0;
    virtual size_t Size() const = 0;
};

// Memory of this process, aligned for vector instructions.
std::unique_ptr<Block> MakeHeapBlock(size_t size);

// Blocks come back from any thread, also after the owner of the pool has ended.
class BlockPool : public std::enable_shared_from_this<BlockPool> {
  public:
    using Make = std::function<std::unique_ptr<Block>(size_t size)>;
    explicit BlockPool(Make make = MakeHeapBlock);

    // Returns a block of at least this size, or null when it cannot be made. The block returns to the pool
    // with its last owner.
    std::shared_ptr<Block> Take(size_t size);
    // Frees the unused blocks, and from now on every block that comes back.
    void Close();

  private:
    // One is being filled, one is on its way, and one is kept to be delivered again.
    static constexpr size_t kMostUnused = 3;
    void Return(std::unique_ptr<Block> block);

    Make m_make;
    std::mutex m_mutex;
    bool m_closed = false;
    std::vector<std::unique_ptr<Block>> m_unused;
};

}  // namespace luxrt
