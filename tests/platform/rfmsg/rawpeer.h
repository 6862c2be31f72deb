#pragma once
// A bare TCP client that sends whatever bytes a test gives it: for peers that
// misbehave on purpose.

#include <string>

class RawPeer
{
public:
    explicit RawPeer(int port);
    ~RawPeer();
    RawPeer(const RawPeer&) = delete;
    RawPeer& operator=(const RawPeer&) = delete;

    bool connected() const { return m_fd >= 0; }
    void send(const std::string& bytes);
    // Closes normally (FIN).
    void close();
    // Closes with a reset (RST), as a crashed peer's system may.
    void reset();
    // Everything the bridge sends until it closes the connection, or what came
    // before `timeoutMs` passed; `closed` says which.
    std::string readUntilClosed(int timeoutMs, bool* closed = nullptr);

private:
    int m_fd = -1;
};
