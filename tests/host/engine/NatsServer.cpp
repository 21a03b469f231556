#include "tests/host/engine/NatsServer.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netinet/in.h>
#include <signal.h>
#include <spawn.h>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/wait.h>
#include <time.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <iterator>
#include <sstream>
#include <stdexcept>
#include <thread>
#include <vector>

#include "host/engine/NatsObjects.h"

namespace {

// That the server chose, once it has written it down; -1 before.
int ReadPort(const std::filesystem::path& folder, pid_t process) {
    std::ifstream file(folder / ("nats-server_" + std::to_string(process) + ".ports"));
    const std::string text(std::istreambuf_iterator<char>(file), {});
    const std::string begin = "://127.0.0.1:";
    const std::size_t at = text.find(begin);
    return at != std::string::npos && text.ends_with('}') ? std::stoi(text.substr(at + begin.size())) : -1;
}

bool Answers(int port) {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_port = htons(static_cast<std::uint16_t>(port));
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    char greeting[4];
    const bool answers = connect(probe, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0 &&
                         recv(probe, greeting, sizeof greeting, 0) > 0;
    close(probe);
    return answers;
}

// That the system does not use.
int FreePort() {
    const int probe = socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t size = sizeof address;
    bind(probe, reinterpret_cast<sockaddr*>(&address), size);
    getsockname(probe, reinterpret_cast<sockaddr*>(&address), &size);
    close(probe);
    return ntohs(address.sin_port);
}

}  // namespace

bool NatsServer::IsThere() {
    return std::system("command -v nats-server >/dev/null 2>&1") == 0;
}

NatsServer::NatsServer(std::string arguments) : folder(MakeOwnFolder()), more(std::move(arguments)) {
    Start();
}

NatsServer::~NatsServer() {
    Kill();
}

void NatsServer::Kill() {
    if (process > 0) {
        kill(process, SIGKILL);
        waitpid(process, nullptr, 0);
    }
    process = 0;
}

void NatsServer::Hang() {
    kill(process, SIGSTOP);
}

// When it starts again its port may be in use for a moment, by a connection that was given it; then it is
// tried again.
void NatsServer::Start() {
    constexpr int TRIALS = 20, WAITS = 1000;
    for (int trial = 0; trial < TRIALS; ++trial) {
        Begin();
        for (int wait = 0; wait < WAITS && waitpid(process, nullptr, WNOHANG) == 0; ++wait) {
            const int found = port > 0 ? port : ReadPort(folder->Path(), process);
            if (found > 0 && Answers(found)) {
                port = found;
                return;
            }
            std::this_thread::sleep_for(std::chrono::milliseconds(20));
        }
        Kill();
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    throw std::runtime_error("nats-server does not start: " + Log());
}

std::string NatsServer::Log() const {
    std::ostringstream log;
    log << std::ifstream(folder->Path() / "log").rdbuf();
    return log.str();
}

double NatsServer::ProcessorSeconds() const {
    clockid_t clock{};
    timespec spent{};
    if (clock_getcpuclockid(process, &clock) == 0) clock_gettime(clock, &spent);
    return static_cast<double>(spent.tv_sec) + 1e-9 * static_cast<double>(spent.tv_nsec);
}

void NatsServer::Begin() {
    const pid_t parent = getpid();
    const std::string place = folder->Path().string();
    std::vector<std::string> words = {"nats-server",        "-a",  "127.0.0.1", "-p",
                                      std::to_string(port), "-js", "-sd",       place,
                                      "--ports_file_dir",   place};
    std::istringstream rest(more);
    for (std::string word; rest >> word;) words.push_back(word);
    std::vector<char*> arguments;
    for (std::string& word : words) arguments.push_back(word.data());
    arguments.push_back(nullptr);
    const std::string log = place + "/log";
    process = fork();
    if (process != 0) return;
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const int output = open(log.c_str(), O_WRONLY | O_CREAT | O_APPEND | O_CLOEXEC, 0600);
    dup2(output, 1);
    dup2(output, 2);
    if (getppid() == parent) execvp("nats-server", arguments.data());
    _exit(127);
}

NatsCluster::NatsCluster() {
    constexpr int SERVERS = 3;
    std::vector<std::string> routes;
    std::string all;
    for (int server = 0; server < SERVERS; ++server) {
        routes.push_back("nats://127.0.0.1:" + std::to_string(FreePort()));
        all += (server > 0 ? "," : "") + routes.back();
    }
    for (int server = 0; server < SERVERS; ++server)
        servers.push_back(std::make_unique<NatsServer>(
            "--name s" + std::to_string(server) + " --cluster_name c --cluster " +
            routes[static_cast<std::size_t>(server)] + " --routes " + all));
}

std::string NatsCluster::Urls() const {
    std::string urls;
    for (const auto& server : servers) urls += (urls.empty() ? "" : ",") + server->Url();
    return urls;
}

int NatsCluster::LeaderOf(const std::string& stream) const {
    using namespace host::engine;
    for (const auto& server : servers) {
        natsConnection* connected = nullptr;
        jsCtx* context = nullptr;
        jsStreamInfo* found = nullptr;
        jsErrCode code{};
        if (natsConnection_ConnectTo(&connected, server->Url().c_str()) != NATS_OK) continue;
        const Connection connection(connected);
        if (natsConnection_JetStream(&context, connected, nullptr) != NATS_OK) continue;
        const Context jetStream(context);
        if (js_GetStreamInfo(&found, context, stream.c_str(), nullptr, &code) != NATS_OK) continue;
        const StreamInfo info(found);
        const char* const leader = info->Cluster != nullptr ? info->Cluster->Leader : nullptr;
        if (leader != nullptr && *leader == 's') return leader[1] - '0';
    }
    return -1;
}
