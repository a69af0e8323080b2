#include "runtime/software/Memory.h"

#include <new>
#include <utility>

namespace luxrt {

namespace {

class HeapBlock : public Block {
  public:
    explicit HeapBlock(size_t size)
        : m_size(size), m_bytes(static_cast<uint8_t*>(operator new(size, kAlignment))) {}
    ~HeapBlock() override { operator delete(m_bytes, kAlignment); }

    uint8_t* Bytes() override { return m_bytes; }
    size_t Size() const override { return m_size; }

  private:
    static constexpr std::align_val_t kAlignment{64};
    size_t m_size;
    uint8_t* m_bytes;
};

}  // namespace

std::unique_ptr<Block> MakeHeapBlock(size_t size) {
    return std::make_unique<HeapBlock>(size);
}

BlockPool::BlockPool(Make make) : m_make(std::move(make)) {
    // A block that comes back must not fail to find its place.
    m_unused.reserve(kMostUnused);
}

std::shared_ptr<Block> BlockPool::Take(size_t size) {
    std::unique_ptr<Block> block;
    {
        const std::lock_guard lock(m_mutex);
        while (!m_unused.empty() && !block) {
            block = std::move(m_unused.back());
            m_unused.pop_back();
            if (block->Size() < size) {
                block.reset();
            }
        }
    }
    if (!block) {
        block = m_make(size);
    }
    if (!block) {
        return nullptr;
    }
    return {block.release(),
            [pool = shared_from_this()](Block* used) { pool->Return(std::unique_ptr<Block>(used)); }};
}

void BlockPool::Close() {
    std::vector<std::unique_ptr<Block>> unused;
    const std::lock_guard lock(m_mutex);
    m_closed = true;
    unused.swap(m_unused);
}

void BlockPool::Return(std::unique_ptr<Block> block) {
    const std::lock_guard lock(m_mutex);
    if (!m_closed && m_unused.size() < kMostUnused) {
        m_unused.push_back(std::move(block));
    }
}

}  // namespace luxrt
