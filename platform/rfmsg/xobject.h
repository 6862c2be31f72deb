#pragma once
// Base of every object the messaging library hands out, and the owning pointer.

#include <utility>

#include "rfmsg/rfmsgexport.h"

namespace RFMsgExp {

class RFMSG_EXPORT IXObject
{
public:
    // Releases the object; it must not be used afterwards.
    virtual void Destroy() = 0;

protected:
    virtual ~IXObject() = default;
};

// Owns one library object and releases it with Destroy().
template <typename T> class msg_auto_ptr
{
public:
    msg_auto_ptr() = default;
    explicit msg_auto_ptr(T* object) : m_object(object) {}
    msg_auto_ptr(const msg_auto_ptr&) = delete;
    msg_auto_ptr& operator=(const msg_auto_ptr&) = delete;
    msg_auto_ptr(msg_auto_ptr&& other) noexcept : m_object(other.release()) {}
    msg_auto_ptr& operator=(msg_auto_ptr&& other) noexcept
    {
        if (this != &other)
            reset(other.release());
        return *this;
    }
    ~msg_auto_ptr() { reset(); }

    T* get() const { return m_object; }
    T* operator->() const { return m_object; }
    T& operator*() const { return *m_object; }
    explicit operator bool() const { return m_object != nullptr; }

    T* release() { return std::exchange(m_object, nullptr); }
    void reset(T* object = nullptr)
    {
        T* old = std::exchange(m_object, object);
        if (old)
            old->Destroy();
    }

private:
    T* m_object = nullptr;
};

} // namespace RFMsgExp
