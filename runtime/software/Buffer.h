// One encoded packet.
#pragma once

#include <memory>
#include <utility>

#include "runtime/software/Memory.h"
#include "runtime/software/Object.h"
#include "runtime/software/Properties.h"

namespace luxrt {

class Buffer : public Object<lux::LUXBuffer> {
  public:
    // `block` has `size` bytes at least.
    Buffer(std::shared_ptr<Block> block, size_t size) : m_block(std::move(block)), m_size(size) {}

    // A packet has no properties.
    lux::LUX_RESULT SetProperty(const wchar_t* name, const lux::LUXVariant* value) override {
        return m_properties.Set(name, value);
    }
    lux::LUX_RESULT GetProperty(const wchar_t* name, lux::LUXVariant* value) override {
        return m_properties.Get(name, value);
    }
    size_t GetSize() override { return m_size; }
    void* GetNative() override { return m_block->Bytes(); }

  private:
    void* Find(const lux::LUXInterfaceId& id) override {
        return id == lux::LUXBuffer::kId ? static_cast<lux::LUXBuffer*>(this) : nullptr;
    }

    std::shared_ptr<Block> m_block;
    size_t m_size;
    Properties m_properties{{}};
};

}  // namespace luxrt
