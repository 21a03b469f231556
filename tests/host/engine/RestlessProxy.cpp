#include "tests/host/engine/RestlessProxy.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <vector>

namespace {

constexpr std::int64_t SHORTEST = 2000, LONGEST = 400000;  // bytes to a reset

sockaddr_in Loopback(int port) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    return address;
}

// The other side learns of it by a reset, not by an orderly end.
void Reset(int socket) {
    const linger at_once{1, 0};
    setsockopt(socket, SOL_SOCKET, SO_LINGER, &at_once, sizeof at_once);
    close(socket);
}

bool SendAll(int to, const char* bytes, ssize_t count) {
    while (count > 0) {
        const ssize_t sent = send(to, bytes, static_cast<std::size_t>(count), MSG_NOSIGNAL);
        if (sent <= 0) return false;
        bytes += sent;
        count -= sent;
    }
    return true;
}

std::int64_t Draw(std::mt19937& random, std::int64_t least, std::int64_t greatest) {
    return std::uniform_int_distribution<std::int64_t>(least, greatest)(random);
}

}  // namespace

RestlessProxy::RestlessProxy(int serverPort, std::uint32_t seed, int resets)
    : server(serverPort), firstSeed(seed), most(resets) {
    listener = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address = Loopback(0);
    socklen_t size = sizeof address;
    bind(listener, reinterpret_cast<sockaddr*>(&address), size);
    listen(listener, 16);
    getsockname(listener, reinterpret_cast<sockaddr*>(&address), &size);
    port = ntohs(address.sin_port);
    serving = std::jthread([this] { Serve(); });
}

RestlessProxy::~RestlessProxy() {
    ends = true;
    serving.join();
    close(listener);
}

void RestlessProxy::Serve() {
    std::vector<std::jthread> connections;
    std::uint32_t seed = firstSeed;
    while (!ends) {
        pollfd wait{listener, POLLIN, 0};
        if (poll(&wait, 1, 50) <= 0) continue;
        const int client = accept4(listener, nullptr, nullptr, SOCK_CLOEXEC);
        if (client >= 0) connections.emplace_back([this, client, each = ++seed] { Pass(client, each); });
    }
}

void RestlessProxy::Pass(int client, std::uint32_t seed) {
    std::mt19937 random(seed);
    const int upstream = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const sockaddr_in address = Loopback(server);
    const int room = 65536;  // so that a server notices soon when nothing is read
    setsockopt(upstream, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
    bool goesOn = connect(upstream, reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0;
    std::int64_t untilReset = Draw(random, SHORTEST, LONGEST);
    while (goesOn && !ends) {
        if (untilHold.load() <= 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(5));
            continue;
        }
        pollfd wait[] = {{client, POLLIN, 0}, {upstream, POLLIN, 0}};
        if (poll(wait, 2, 50) <= 0) continue;
        if (wait[0].revents != 0) goesOn = Forward(client, upstream, random, untilReset);
        if (goesOn && wait[1].revents != 0) goesOn = Forward(upstream, client, random, untilReset);
    }
    Reset(client);
    Reset(upstream);
}

bool RestlessProxy::Forward(int from, int to, std::mt19937& random, std::int64_t& untilReset) {
    constexpr int DELAYS_ONE_IN = 60, LONGEST_DELAY = 500;
    char bytes[16384];
    ssize_t count = recv(from, bytes, sizeof bytes, 0);
    if (count <= 0) return false;
    untilHold -= count;
    if (most > 0 && Draw(random, 1, DELAYS_ONE_IN) == 1)
        std::this_thread::sleep_for(std::chrono::milliseconds(Draw(random, 0, LONGEST_DELAY)));
    untilReset -= count;
    if (untilReset > 0 || done.load() >= most) return SendAll(to, bytes, count);
    ++done;
    SendAll(to, bytes, Draw(random, 0, count - 1));
    return false;
}
