// The bridge's transport beside bare POSIX sockets doing the same work in the
// same run: small-message round trips, and a 200 MiB text body sent to another
// process (time, and that process's peak memory). Also what four peers that
// stop half-way through frames of the frame limit cost a bridge process.

#include <benchmark/benchmark.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <unistd.h>

#include "rfmsg/peerclient.h"
#include "rfmsg/testing.h"
#include "rfmsg/wirecodec.h"
#include "rfmsg/xbridge.h"

using namespace RFMsgExp;

namespace {

constexpr std::size_t kLargeBody = 200u << 20;
// The frame limit of the bridge that stalling peers attack; its budget is twice that.
constexpr std::uint32_t kStallFrameLimit = 64u << 20;
constexpr int kStallingPeers = 4;

// Helpers over bare sockets -------------------------------------------------

int listenLoopback(int& port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    ::bind(fd, reinterpret_cast<sockaddr*>(&address), sizeof address);
    ::listen(fd, 4);
    socklen_t size = sizeof address;
    ::getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    return fd;
}

int connectLoopback(int port)
{
    const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    if (::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0)
        return -1;
    const int on = 1;
    ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    return fd;
}

bool readExactly(int fd, char* data, std::size_t size)
{
    while (size > 0) {
        const long count = ::recv(fd, data, size, 0);
        if (count <= 0)
            return false;
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

bool writeExactly(int fd, const char* data, std::size_t size)
{
    while (size > 0) {
        const long count = ::send(fd, data, size, MSG_NOSIGNAL);
        if (count <= 0)
            return false;
        data += count;
        size -= static_cast<std::size_t>(count);
    }
    return true;
}

long peakMemoryBytes()
{
    std::ifstream status("/proc/self/status");
    std::string line;
    while (std::getline(status, line))
        if (line.rfind("VmHWM:", 0) == 0)
            return std::stol(line.substr(6)) * 1024;
    return 0;
}

MessageContent smallMessage()
{
    MessageContent content;
    content.kind = 224;
    content.properties = {{"NETLIST_RFREGION", "lna"}};
    return content;
}

const MessageContent& largeMessage()
{
    static const MessageContent content = [] {
        MessageContent message;
        message.kind = 222;
        message.properties = {{"RFDESIGN", "pa_top"}, {"RFREGION", "pa"}};
        const std::string line = "  RECT LAYER=M6 NET=DRAIN 520.000 180.000 760.000 440.000\n";
        message.text.reserve(kLargeBody);
        while (message.text.size() + line.size() <= kLargeBody)
            message.text += line;
        message.text.resize(kLargeBody, '\n');
        return message;
    }();
    return content;
}

// Round trips ---------------------------------------------------------------

class EchoBridge : public XBridge
{
public:
    ~EchoBridge() override { Testing::stopDelivery(*this); }
    msg_auto_ptr<IRFMessage> OnReceive(msg_auto_ptr<IRFMessage> message) override
    {
        // Answer with a message of its own, as a peer's request would be answered.
        return Testing::makeMessage(Testing::contentOf(*message));
    }
};

void BM_RoundTripThroughBridge(benchmark::State& state)
{
    EchoBridge bridge;
    int port = 0;
    bridge.Init(port, 0);
    PeerClient peer;
    peer.connect("127.0.0.1", port, "DXD");
    const MessageContent message = smallMessage();
    for (auto _ : state) {
        peer.send(message);
        if (!peer.receive(10000)) {
            state.SkipWithError("no reply from the bridge");
            break;
        }
    }
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTripThroughBridge)->UseRealTime();

void BM_RoundTripBareSocket(benchmark::State& state)
{
    // As many bytes as one of the bridge's small frames, echoed by a thread.
    const std::size_t size = Wire::encodeMessage(smallMessage()).size();
    int port = 0;
    const int listenFd = listenLoopback(port);
    std::thread echo([&] {
        const int fd = ::accept(listenFd, nullptr, nullptr);
        const int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
        std::vector<char> buffer(size);
        while (readExactly(fd, buffer.data(), size) && writeExactly(fd, buffer.data(), size)) {
        }
        ::close(fd);
    });
    const int fd = connectLoopback(port);
    std::vector<char> buffer(size, 'x');
    for (auto _ : state) {
        writeExactly(fd, buffer.data(), size);
        readExactly(fd, buffer.data(), size);
    }
    ::close(fd);
    echo.join();
    ::close(listenFd);
    state.SetItemsProcessed(state.iterations());
}
BENCHMARK(BM_RoundTripBareSocket)->UseRealTime();

// A large body to another process ------------------------------------------

// A receiving child: prints "port N", then "got N" per body, and "peak N"
// once its standard input closes.
class Receiver
{
public:
    explicit Receiver(const char* mode)
    {
        int toChild[2];
        int fromChild[2];
        if (::pipe(toChild) != 0 || ::pipe(fromChild) != 0)
            return;
        m_pid = ::fork();
        if (m_pid == 0) {
            ::dup2(toChild[0], 0);
            ::dup2(fromChild[1], 1);
            ::close(toChild[1]);
            ::close(fromChild[0]);
            char self[] = "/proc/self/exe";
            char* arguments[] = {self, const_cast<char*>(mode), nullptr};
            ::execv(self, arguments);
            ::_exit(127);
        }
        ::close(toChild[0]);
        ::close(fromChild[1]);
        m_input = toChild[1];
        m_output = ::fdopen(fromChild[0], "r");
    }
    ~Receiver()
    {
        if (m_input >= 0)
            ::close(m_input);
        if (m_output)
            std::fclose(m_output);
        if (m_pid > 0)
            ::waitpid(m_pid, nullptr, 0);
    }
    // The number after `word` on the child's next line; -1 if it did not come.
    long expect(const char* word)
    {
        char line[256];
        if (!m_output || !std::fgets(line, sizeof line, m_output))
            return -1;
        const std::size_t length = std::strlen(word);
        if (std::strncmp(line, word, length) != 0)
            return -1;
        return std::atol(line + length);
    }
    long peak()
    {
        ::close(m_input);
        m_input = -1;
        return expect("peak ");
    }

private:
    pid_t m_pid = -1;
    int m_input = -1;
    FILE* m_output = nullptr;
};

void BM_LargeBodyThroughBridge(benchmark::State& state)
{
    const MessageContent& message = largeMessage();
    Receiver receiver("--receive-through-bridge");
    const long port = receiver.expect("port ");
    PeerClient peer;
    peer.connect("127.0.0.1", static_cast<int>(port), "BSXE");
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        peer.send(message);
        const bool delivered = receiver.expect("got") == 0;
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
        if (!delivered || receiver.expect("size ") != static_cast<long>(kLargeBody)) {
            state.SkipWithError("the body did not arrive whole");
            break;
        }
    }
    peer.close();
    state.counters["peak_memory_bytes"] = static_cast<double>(receiver.peak());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kLargeBody));
}
BENCHMARK(BM_LargeBodyThroughBridge)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

void BM_LargeBodyBareSocket(benchmark::State& state)
{
    const MessageContent& message = largeMessage();
    Receiver receiver("--receive-bare");
    const long port = receiver.expect("port ");
    const int fd = connectLoopback(static_cast<int>(port));
    for (auto _ : state) {
        const auto start = std::chrono::steady_clock::now();
        const std::uint64_t size = message.text.size();
        writeExactly(fd, reinterpret_cast<const char*>(&size), sizeof size);
        writeExactly(fd, message.text.data(), message.text.size());
        if (receiver.expect("got ") != static_cast<long>(kLargeBody)) {
            state.SkipWithError("the body did not arrive whole");
            break;
        }
        state.SetIterationTime(
            std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
    }
    ::close(fd);
    state.counters["peak_memory_bytes"] = static_cast<double>(receiver.peak());
    state.SetBytesProcessed(state.iterations() * static_cast<std::int64_t>(kLargeBody));
}
BENCHMARK(BM_LargeBodyBareSocket)->UseManualTime()->Iterations(5)->Unit(benchmark::kMillisecond);

// Peers stalling mid-frame -------------------------------------------------

std::string header(unsigned char type, std::uint32_t length)
{
    std::string bytes = {'R', 'F', 1, static_cast<char>(type)};
    for (int shift = 24; shift >= 0; shift -= 8)
        bytes += static_cast<char>((length >> shift) & 0xff);
    return bytes;
}

void BM_StallingPeersPeakMemory(benchmark::State& state)
{
    Receiver receiver("--receive-stalling");
    const long port = receiver.expect("port ");
    const std::string hello = Wire::encodeHello({"STALL", Wire::kProtocolVersion}).flatten();
    const std::string half = header(3, kStallFrameLimit) + std::string(kStallFrameLimit / 2, 'x');
    for (auto _ : state) {
        // Each sends half a frame of the limit and stops; those that wait for
        // the budget are not read, so their sending blocks until dropped.
        std::vector<std::thread> peers;
        std::vector<int> fds;
        for (int i = 0; i < kStallingPeers; ++i) {
            fds.push_back(connectLoopback(static_cast<int>(port)));
            peers.emplace_back([fd = fds.back(), &hello, &half] {
                writeExactly(fd, hello.data(), hello.size());
                writeExactly(fd, half.data(), half.size());
            });
        }
        bool dropped = true;
        for (int i = 0; i < kStallingPeers; ++i)
            dropped = receiver.expect("dropped") == 0 && dropped;
        for (std::thread& peer : peers)
            peer.join();
        for (const int fd : fds)
            ::close(fd);
        if (!dropped) {
            state.SkipWithError("the stalling peers were not dropped");
            break;
        }
    }
    state.counters["peak_memory_bytes"] = static_cast<double>(receiver.peak());
}
BENCHMARK(BM_StallingPeersPeakMemory)->Iterations(1)->Unit(benchmark::kMillisecond);

// The children --------------------------------------------------------------

class ReceivingBridge : public XBridge
{
public:
    ~ReceivingBridge() override { Testing::stopDelivery(*this); }
    msg_auto_ptr<IRFMessage> OnReceive(msg_auto_ptr<IRFMessage> message) override
    {
        // Delivered: the transfer is over. Then, as a handler would, take the
        // text out of the message (it counts for peak memory, not for time).
        std::printf("got\n");
        std::fflush(stdout);
        std::size_t size = message->GetText().length();
        message.reset();
        // Only now may the next body come: one at a time, as in the baseline.
        std::printf("size %zu\n", size);
        std::fflush(stdout);
        return {};
    }
    // A peer dropped (the stalling peers).
    void OnError(const IXException&) override
    {
        std::printf("dropped\n");
        std::fflush(stdout);
    }
};

// Runs a receiving bridge with `limits` until standard input closes.
int serveBridge(const Testing::TransportLimits& limits)
{
    ReceivingBridge bridge;
    Testing::setTransportLimits(bridge, limits);
    int port = 0;
    bridge.Init(port, 0);
    std::printf("port %d\n", port);
    std::fflush(stdout);
    char ignored[16];
    while (::read(0, ignored, sizeof ignored) > 0) {
    }
    bridge.Disconnect();
    std::printf("peak %ld\n", peakMemoryBytes());
    return 0;
}

int receiveBare()
{
    int port = 0;
    const int listenFd = listenLoopback(port);
    std::printf("port %d\n", port);
    std::fflush(stdout);
    std::thread reader([listenFd] {
        const int fd = ::accept(listenFd, nullptr, nullptr);
        std::uint64_t size = 0;
        while (readExactly(fd, reinterpret_cast<char*>(&size), sizeof size)) {
            char* body = new char[size];
            const bool whole = readExactly(fd, body, size);
            std::printf("got %llu\n", whole ? static_cast<unsigned long long>(size) : 0ull);
            std::fflush(stdout);
            delete[] body;
        }
        ::close(fd);
    });
    char ignored[16];
    while (::read(0, ignored, sizeof ignored) > 0) {
    }
    reader.join();
    std::printf("peak %ld\n", peakMemoryBytes());
    return 0;
}

} // namespace

int main(int argc, char** argv)
{
    if (argc == 2 && std::strcmp(argv[1], "--receive-through-bridge") == 0)
        return serveBridge({});
    if (argc == 2 && std::strcmp(argv[1], "--receive-bare") == 0)
        return receiveBare();
    if (argc == 2 && std::strcmp(argv[1], "--receive-stalling") == 0) {
        Testing::TransportLimits limits;
        limits.frameLimit = kStallFrameLimit;
        limits.stallTimeoutMs = 1000;
        return serveBridge(limits);
    }
    ::signal(SIGPIPE, SIG_IGN);
    benchmark::Initialize(&argc, argv);
    benchmark::RunSpecifiedBenchmarks();
    benchmark::Shutdown();
    return 0;
}
