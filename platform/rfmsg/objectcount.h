#pragma once
// Internal: counts library objects so that tests can see leaks.

#include <atomic>

namespace RFMsgExp::Internal {

struct ObjectCount
{
    static std::atomic<long>& live();
    static std::atomic<long>& created();
};

// Base of the library's concrete objects: counted while alive, freed by Destroy().
template <typename Interface> class Counted : public Interface
{
public:
    Counted()
    {
        ObjectCount::live().fetch_add(1, std::memory_order_relaxed);
        ObjectCount::created().fetch_add(1, std::memory_order_relaxed);
    }
    Counted(const Counted&) = delete;
    Counted& operator=(const Counted&) = delete;
    void Destroy() override { delete this; }

protected:
    ~Counted() override { ObjectCount::live().fetch_sub(1, std::memory_order_relaxed); }
};

} // namespace RFMsgExp::Internal
