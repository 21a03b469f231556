#include "host/engine/EngineConnection.h"

#include <algorithm>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <random>
#include <utility>
#include <vector>

namespace host::engine {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr std::int64_t CONNECT_WAIT = 2000, WRITE_WAIT = 5000, ANSWER_WAIT = 1000;  // ms
constexpr auto PRESENCE_EVERY = 500ms;
constexpr auto SILENCE = 5s;  // on a connection, after which another one is made
constexpr auto FIRST_PAUSE = 50ms, LONGEST_PAUSE = 1000ms;
constexpr auto LONGEST_END = 3s;   // of the program, for attempts that hang
constexpr auto FIRST_LIMIT = 10s;  // of an attempt that hangs, after which another one is made

void OnError(natsConnection*, natsSubscription*, natsStatus, void*) {}

natsStatus SetServers(natsOptions* options, const std::string& urls) {
    std::vector<std::string> all;
    for (std::size_t begin = 0; begin <= urls.size();) {
        const std::size_t end = std::min(urls.find(',', begin), urls.size());
        all.push_back(urls.substr(begin, end - begin));
        begin = end + 1;
    }
    std::vector<const char*> texts;
    for (const std::string& each : all) texts.push_back(each.c_str());
    return natsOptions_SetServers(options, texts.data(), static_cast<int>(texts.size()));
}

natsStatus Prepare(natsOptions* options, const EngineAddress& address, const std::string& name) {
    natsStatus status = SetServers(options, address.url);
    const auto then = [&](natsStatus next) { status = status == NATS_OK ? next : status; };
    then(natsOptions_SetName(options, name.c_str()));
    then(natsOptions_SetTimeout(options, CONNECT_WAIT));
    then(natsOptions_SetAllowReconnect(options, false));
    then(natsOptions_SetWriteDeadline(options, WRITE_WAIT));
    then(natsOptions_SetErrorHandler(options, OnError, nullptr));
    if (!address.user.empty())
        then(natsOptions_SetUserInfo(options, address.user.c_str(), address.password.c_str()));
    if (!address.token.empty()) then(natsOptions_SetToken(options, address.token.c_str()));
    if (!address.credentials.empty())
        then(natsOptions_SetUserCredentialsFromFiles(options, address.credentials.c_str(), nullptr));
    if (address.url.find("tls://") != std::string::npos || !address.authority.empty())
        then(natsOptions_SetSecure(options, true));
    if (!address.authority.empty())
        then(natsOptions_LoadCATrustedCertificates(options, address.authority.c_str()));
    if (!address.certificate.empty())
        then(natsOptions_LoadCertificatesChain(options, address.certificate.c_str(), address.key.c_str()));
    return status;
}

std::shared_ptr<Wire> MakeWire(const EngineAddress& address, const std::string& name,
                               EngineConnection::Failure& failure) {
    constexpr std::int64_t REQUEST_WAIT = 2000;
    natsOptions* made = nullptr;
    natsStatus status = natsOptions_Create(&made);
    const Options options(made);
    if (status == NATS_OK) status = Prepare(options.get(), address, name);
    natsConnection* connected = nullptr;
    if (status == NATS_OK) status = natsConnection_Connect(&connected, options.get());
    auto wire = std::make_shared<Wire>();
    wire->connection.reset(connected);
    jsOptions wait;
    jsOptions_Init(&wait);
    wait.Wait = REQUEST_WAIT;
    jsCtx* context = nullptr;
    if (status == NATS_OK) status = natsConnection_JetStream(&context, connected, &wait);
    wire->context.reset(context);
    failure = {status, status == NATS_OK ? "" : Reason(status)};
    return status == NATS_OK ? wire : nullptr;
}

bool IsWhole(natsConnection* connection) {
    const char* text = nullptr;
    // A write that was given up leaves half a message, whatever the status says.
    const natsStatus last = natsConnection_GetLastError(connection, &text);
    return natsConnection_Status(connection) == NATS_CONN_STATUS_CONNECTED && last != NATS_TIMEOUT &&
           last != NATS_IO_ERROR;
}

std::uint64_t CountReceived(natsConnection* connection) {
    natsStatistics* statistics = nullptr;
    std::uint64_t messages = 0;
    if (natsStatistics_Create(&statistics) != NATS_OK) return 0;
    if (natsConnection_GetStats(connection, statistics) == NATS_OK)
        natsStatistics_GetCounts(statistics, &messages, nullptr, nullptr, nullptr, nullptr);
    natsStatistics_Destroy(statistics);
    return messages;
}

// The attempts to connect that are under way, of which some may have been given up. The library's clean-up at
// the end of the program must not meet one, so the end waits for them; beyond that it leaves all as it is.
class Attempts {
 public:
    static Attempts& Get() {
        static Attempts* const attempts = new Attempts;  // they may end after static objects
        return *attempts;
    }
    void Begin() {
        const std::lock_guard lock(mutex);
        ++underWay;
    }
    // The last that the thread of an attempt does.
    void End() {
        nats_ReleaseThreadMemory();
        const std::lock_guard lock(mutex);
        --underWay;
        changed.notify_all();
    }

 private:
    Attempts() {
        nats_Open(-1);  // so that its clean-up comes after this one
        on_exit([](int code, void*) { Get().AtExit(code); }, nullptr);
    }
    void AtExit(int code) {
        std::unique_lock lock(mutex);
        if (changed.wait_for(lock, LONGEST_END, [this] { return underWay == 0; })) return;
        std::fflush(nullptr);
        std::_Exit(code);
    }

    std::mutex mutex;
    std::condition_variable changed;
    int underWay = 0;
};

}  // namespace

bool EngineConnection::Failure::IsOfUser() const {
    return status == NATS_CONNECTION_AUTH_FAILED || status == NATS_NOT_PERMITTED;
}

// Other errors of TLS come from connections that broke.
bool EngineConnection::Failure::IsOfCertificate() const {
    constexpr const char* WORDS[] = {"certificate", "unknown ca", "unknown_ca"};
    return (status == NATS_SSL_ERROR || status == NATS_IO_ERROR) &&
           std::ranges::any_of(WORDS,
                               [this](const char* word) { return reason.find(word) != std::string::npos; });
}

bool EngineConnection::Failure::IsFinal() const {
    constexpr natsStatus UNUSABLE[] = {NATS_INVALID_ARG, NATS_ADDRESS_MISSING,  // secrets, addresses
                                       NATS_SECURE_CONNECTION_WANTED};
    return IsOfUser() || IsOfCertificate() || std::ranges::find(UNUSABLE, status) != std::end(UNUSABLE);
}

Wire::~Wire() {
    context.reset();
    if (connection != nullptr) natsConnection_Close(connection.get());
}

struct EngineConnection::Shared {
    EngineAddress address;
    std::string name;
    std::string presence;

    std::mutex mutex;
    std::condition_variable changed;
    // Under the mutex:
    bool ends = false;
    std::shared_ptr<Wire> wire;
    std::uint64_t made = 0;     // connections
    std::uint64_t dropped = 0;  // the last one that was found to be broken
    std::uint64_t attempt = 0;  // the one that counts; those before it were given up
    bool isTrying = false;
    Clock::time_point heard = Clock::now();
    Clock::time_point looked = heard;  // when it was last seen whether anything was heard
    Failure failure;

    void Keep(const std::shared_ptr<Shared>& self);
    void Watch(std::unique_lock<std::mutex>& lock);
    bool Connect(const std::shared_ptr<Shared>& self, std::chrono::milliseconds limit,
                 std::unique_lock<std::mutex>& lock);
    void Try(std::uint64_t number);
    void Look();
    void Fail(natsStatus status) { failure = {status, natsStatus_GetText(status)}; }
};

// An attempt has a thread of its own, for the library cannot be stopped while it looks up a host's name or
// agrees on TLS, which both may take longer than any patience.
void EngineConnection::Shared::Try(std::uint64_t number) {
    Failure why;
    std::shared_ptr<Wire> tried = MakeWire(address, name, why);
    const std::lock_guard lock(mutex);
    if (ends || number != attempt) return;
    isTrying = false;
    failure = why;
    if (tried != nullptr) {
        tried->number = ++made;
        wire = std::move(tried);
        heard = looked = Clock::now();
    }
    changed.notify_all();
}

// Who was not running for long has heard nothing, whatever the server did.
void EngineConnection::Shared::Look() {
    const auto now = Clock::now();
    if (now - looked > SILENCE) heard += now - looked;
    looked = now;
}

// False when the attempt was given up.
bool EngineConnection::Shared::Connect(const std::shared_ptr<Shared>& self, std::chrono::milliseconds limit,
                                       std::unique_lock<std::mutex>& lock) {
    isTrying = true;
    Attempts::Get().Begin();
    std::thread([trying = self, number = ++attempt]() mutable {
        trying->Try(number);
        trying.reset();
        Attempts::Get().End();
    }).detach();
    const auto isOver = [this] { return ends || !isTrying; };
    for (auto left = limit; left > 0ms; left -= LONGEST_PAUSE) {
        if (changed.wait_for(lock, LONGEST_PAUSE, isOver)) return true;
        Look();
    }
    ++attempt;
    Fail(NATS_TIMEOUT);
    return false;
}

void EngineConnection::Shared::Watch(std::unique_lock<std::mutex>& lock) {
    const std::shared_ptr<Wire> watched = wire;
    natsConnection* const connection = watched->connection.get();
    lock.unlock();
    const std::uint64_t before = CountReceived(connection);
    natsStatus status = natsConnection_Publish(connection, presence.c_str(), nullptr, 0);
    if (status == NATS_OK) status = natsConnection_FlushTimeout(connection, ANSWER_WAIT);
    const bool isHeard = status == NATS_OK || CountReceived(connection) != before;
    const bool isWhole = IsWhole(connection);
    lock.lock();
    const auto isDropped = [&] { return dropped == watched->number; };
    Look();
    if (isHeard) heard = looked;
    if (isWhole && looked - heard < SILENCE && !isDropped()) {
        changed.wait_for(lock, PRESENCE_EVERY, [&] { return ends || isDropped(); });
        return;
    }
    wire.reset();
    Fail(isWhole && !isDropped() ? NATS_TIMEOUT : NATS_CONNECTION_DISCONNECTED);
    lock.unlock();
    natsConnection_Close(connection);
    lock.lock();
    changed.notify_all();
}

void EngineConnection::Shared::Keep(const std::shared_ptr<Shared>& self) {
    std::minstd_rand random(std::random_device{}());
    std::unique_lock lock(mutex);
    std::chrono::milliseconds pause = FIRST_PAUSE, limit = FIRST_LIMIT;
    for (; !ends; Look()) {
        if (wire != nullptr) {
            pause = FIRST_PAUSE;
            limit = FIRST_LIMIT;
            Watch(lock);
            continue;
        }
        if (!Connect(self, limit, lock)) limit *= 2;
        if (wire != nullptr || ends) continue;
        // Not all places at the same moment, when a server that all have lost is there again.
        std::uniform_int_distribution<std::int64_t> spread(pause.count() / 2, pause.count());
        changed.wait_for(lock, std::chrono::milliseconds(spread(random)), [this] { return ends; });
        pause = std::min<std::chrono::milliseconds>(2 * pause, LONGEST_PAUSE);
    }
}

EngineConnection::EngineConnection(const EngineAddress& address, const std::string& name,
                                   const std::string& presence)
    : shared(std::make_shared<Shared>()) {
    shared->address = address;
    shared->name = name;
    shared->presence = presence;
    keeper = std::thread([self = shared] { self->Keep(self); });
}

EngineConnection::~EngineConnection() {
    std::shared_ptr<Wire> last;
    {
        const std::lock_guard lock(shared->mutex);
        shared->ends = true;
        last = std::move(shared->wire);
        shared->changed.notify_all();
    }
    if (last != nullptr) natsConnection_Close(last->connection.get());
    keeper.join();
}

std::shared_ptr<Wire> EngineConnection::Current() const {
    const std::lock_guard lock(shared->mutex);
    return shared->wire;
}

void EngineConnection::WaitForOther(std::uint64_t number, std::chrono::milliseconds longest) const {
    std::unique_lock lock(shared->mutex);
    shared->changed.wait_for(lock, longest, [&] { return shared->made != number; });
}

std::chrono::steady_clock::duration EngineConnection::Silence() const {
    const std::lock_guard lock(shared->mutex);
    return shared->looked - shared->heard;
}

EngineConnection::Failure EngineConnection::LastFailure() const {
    const std::lock_guard lock(shared->mutex);
    return shared->failure;
}

void EngineConnection::Drop(std::uint64_t number) {
    const std::lock_guard lock(shared->mutex);
    shared->dropped = number;
    shared->changed.notify_all();
}

}  // namespace host::engine
