#pragma once
// Internal: memory for received, undelivered data of all connections of a
// bridge. A frame reserves its declared length before its payload is read; its
// decoded message takes the reservation over and gives it back once
// delivered. Frames up to a size draw on a reserve of their own, so that small
// messages keep flowing while large ones wait. Any thread.

#include <cstddef>
#include <functional>
#include <mutex>

namespace RFMsgExp {

class ReceiveBudget
{
public:
    class Reservation;

    // `spaceFreed` is called (without the lock) when a release makes room
    // after a reservation was refused.
    explicit ReceiveBudget(std::function<void()> spaceFreed);

    void configure(std::size_t budget, std::size_t smallFrameLimit, std::size_t smallFrameReserve);
    // Whether a frame of `size` bytes draws on the small frames' reserve.
    bool isSmall(std::size_t size);
    // Reserves `size` bytes for a frame when they fit, or when nothing else is
    // reserved from its pool (so that no frame waits forever); else leaves
    // `reservation` empty and returns false.
    bool tryReserve(std::size_t size, Reservation& reservation);

    std::size_t reserved();
    std::size_t highWater();

    class Reservation
    {
    public:
        Reservation() = default;
        ~Reservation() { release(); }
        Reservation(Reservation&& other) noexcept;
        Reservation& operator=(Reservation&& other) noexcept;
        Reservation(const Reservation&) = delete;
        Reservation& operator=(const Reservation&) = delete;

        // Changes the amount held, beyond the budget if need be: a decoded
        // message is kept whatever its size (the budget then refuses frames
        // until enough was delivered).
        void resize(std::size_t size);
        void release();
        std::size_t size() const { return m_size; }

    private:
        friend class ReceiveBudget;
        ReceiveBudget* m_budget = nullptr;
        bool m_small = false;
        std::size_t m_size = 0;
    };

private:
    struct Pool
    {
        std::size_t limit = 0;
        std::size_t used = 0;
        std::size_t highWater = 0;
    };

    Pool& pool(bool small) { return small ? m_small : m_large; }
    void change(bool small, std::size_t from, std::size_t to);

    std::function<void()> m_spaceFreed;
    std::mutex m_mutex;
    Pool m_large;
    Pool m_small;
    std::size_t m_smallFrameLimit = 0;
    bool m_refused = false;
};

} // namespace RFMsgExp
