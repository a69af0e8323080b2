#pragma once

#include "winhost/core/WaitableObject.h"

namespace winhost {

class Event : public WaitableObject {
  public:
    Event(bool manualReset, bool signalled) : m_manualReset(manualReset), m_isSet(signalled) {}

    void Set();
    void Reset();

  private:
    Taken TryTake() override;

    const bool m_manualReset;
    bool m_isSet;
};

}  // namespace winhost
