#include <gmock/gmock.h>
#include <openssl/pem.h>
#include <openssl/x509.h>

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <condition_variable>
#include <mutex>
#include <set>
#include <thread>

#include "studio/server/WebServer.h"
#include "tests/support/OwnFolder.h"

namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using namespace std::chrono_literals;
using studio::WebServer;
using testing::HasSubstr;
using testing::Not;

constexpr auto LONGEST = 20s;

class Server : public testing::Test {
 protected:
    void Start(WebServer::Options options = {}) {
        files.Add("/index.html", {"text/html; charset=utf-8", "<p>page</p>", false});
        files.Add("/assets/a.js", {"text/javascript; charset=utf-8", "1;", true});
        WebServer::Handlers handlers;
        handlers.opened = [this](auto viewer) { Note([&] { viewers.insert(last = viewer); }); };
        handlers.received = [this](auto, std::string text) {
            Note([&] { received.push_back(std::move(text)); });
        };
        handlers.closed = [this](auto viewer, bool slow) {
            Note([&] { viewers.erase(viewer), tooSlow += slow; });
        };
        server = std::make_unique<WebServer>(options, files, std::move(handlers));
        port = std::to_string(server->Port());
        server->SetGate(studio::Gate("token", server->Port(), access));
        cookie = "sigweave-" + port + "=token";
        serving = std::thread([this] { server->Run(); });
    }
    ~Server() override {
        if (!serving.joinable()) return;
        server->Stop();
        serving.join();
    }

    template <class Work>
    void Note(Work work) {
        const std::lock_guard lock(mutex);
        work();
        changed.notify_all();
    }
    template <class Condition>
    bool WaitFor(Condition holds) {
        std::unique_lock lock(mutex);
        return changed.wait_for(lock, LONGEST, holds);
    }

    tcp::socket Connect() {
        tcp::socket socket(io);
        socket.connect({asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(std::stoi(port))});
        return socket;
    }
    // All that comes as an answer to these bytes, until the server closes or there is a whole answer.
    std::string Ask(const std::string& request) {
        tcp::socket socket = Connect();
        error_code failed;
        asio::write(socket, asio::buffer(request), failed);
        beast::flat_buffer buffer;
        http::response_parser<http::string_body> parser;
        parser.skip(request.starts_with("HEAD"));
        http::read(socket, buffer, parser, failed);
        std::ostringstream text;
        text << parser.get();
        return text.str();
    }
    std::string Get(const std::string& target, const std::string& more = "") {
        return Ask("GET " + target + " HTTP/1.1\r\nHost: 127.0.0.1:" + port + "\r\nCookie: " + cookie +
                   "\r\n" + more + "\r\n");
    }
    using Socket = websocket::stream<tcp::socket>;
    std::unique_ptr<Socket> Open(error_code& failed, const std::string& origin = {}) {
        auto socket = std::make_unique<Socket>(Connect());
        const std::string host = "127.0.0.1:" + port;
        socket->set_option(websocket::stream_base::decorator([&](websocket::request_type& request) {
            request.set(http::field::origin, origin.empty() ? "http://" + host : origin);
            request.set(http::field::cookie, cookie);
        }));
        socket->handshake(host, "/live", failed);
        return socket;
    }

    asio::io_context io;
    studio::PageFiles files;
    std::unique_ptr<WebServer> server;
    std::string port;
    std::string cookie;
    studio::Access access;
    std::thread serving;
    std::mutex mutex;
    std::condition_variable changed;
    std::set<WebServer::Viewer> viewers;
    WebServer::Viewer last = 0;
    int tooSlow = 0;
    std::vector<std::string> received;
};

TEST_F(Server, ServesThePageAndNothingElse) {
    Start();
    const std::string page = Get("/");
    EXPECT_THAT(page, HasSubstr("200 OK"));
    EXPECT_THAT(page, HasSubstr("<p>page</p>"));
    EXPECT_THAT(page, HasSubstr("script-src 'self';"));
    EXPECT_THAT(page, HasSubstr("X-Content-Type-Options: nosniff"));
    EXPECT_THAT(Get("/assets/a.js"), HasSubstr("text/javascript"));
    EXPECT_THAT(Get("/index.html?x=1"), HasSubstr("200 OK"));
    for (const char* target : {"/etc/passwd", "/../../etc/passwd", "/%2e%2e/etc/passwd", "//", "/assets/",
                               "/assets", "http://127.0.0.1/", "*", "/live"})
        EXPECT_THAT(Get(target), HasSubstr("404 Not Found")) << target;
    const std::string head = Ask("HEAD / HTTP/1.1\r\nHost: localhost:1\r\nCookie: " + cookie + "\r\n\r\n");
    EXPECT_THAT(head, HasSubstr("Content-Length: 11"));
}

TEST_F(Server, ExchangesTheTokenForACookie) {
    Start();
    cookie.clear();
    EXPECT_THAT(Get("/"), HasSubstr("401 Unauthorized"));
    EXPECT_THAT(Get("/?token=tokem"), HasSubstr("401 Unauthorized"));
    const std::string answer = Get("/?token=token");
    EXPECT_THAT(answer, HasSubstr("303 See Other"));
    EXPECT_THAT(answer, HasSubstr("Location: /\r\n"));
    EXPECT_THAT(answer, HasSubstr("Set-Cookie: sigweave-" + port + "=token; HttpOnly"));
}

TEST_F(Server, RefusesOthers) {
    Start();
    EXPECT_THAT(Get("/", "Origin: http://evil.example\r\n"), HasSubstr("403 Forbidden"));
    EXPECT_THAT(Ask("GET / HTTP/1.1\r\nHost: evil.example\r\nCookie: " + cookie + "\r\n\r\n"),
                HasSubstr("421"));
    EXPECT_THAT(Ask("GET / HTTP/1.1\r\nCookie: " + cookie + "\r\n\r\n"), HasSubstr("421"));
    EXPECT_THAT(Ask("DELETE / HTTP/1.1\r\nHost: localhost\r\n\r\n"), HasSubstr("405"));
    EXPECT_THAT(Get("/", "X: " + std::string(9000, 'a') + "\r\n"), HasSubstr("413"));
    EXPECT_THAT(Ask("GET / HTTP/1.1\r\nHost: localhost\r\nContent-Length: 99999\r\n\r\n"), HasSubstr("413"));
    error_code failed;
    Open(failed, "http://evil.example");
    EXPECT_TRUE(failed);
    cookie = "sigweave-" + port + "=other";
    Open(failed);
    EXPECT_TRUE(failed);
    EXPECT_EQ(last, 0u);
}

TEST_F(Server, SpeaksWithEachViewerInOrder) {
    Start();
    error_code failed;
    const auto socket = Open(failed);
    ASSERT_FALSE(failed) << failed.message();
    ASSERT_TRUE(WaitFor([this] { return viewers.size() == 1; }));
    for (int i = 0; i < 100; ++i) server->Send(last, std::make_shared<const std::string>(std::to_string(i)));
    server->SendBinary(
        last, {std::make_shared<const std::string>("pict"), std::make_shared<const std::string>("ure")});
    for (int i = 0; i < 101; ++i) {
        beast::flat_buffer buffer;
        socket->read(buffer);
        EXPECT_EQ(beast::buffers_to_string(buffer.data()), i < 100 ? std::to_string(i) : "picture");
        EXPECT_EQ(socket->got_binary(), i == 100);
    }
    socket->write(asio::buffer(std::string("hello")));
    ASSERT_TRUE(WaitFor([this] { return received.size() == 1; }));
    EXPECT_EQ(received[0], "hello");
    socket->close(websocket::close_code::normal, failed);
    EXPECT_TRUE(WaitFor([this] { return viewers.empty(); }));
    EXPECT_EQ(tooSlow, 0);
}

TEST_F(Server, ClosesAViewerThatSendsTooMuch) {
    WebServer::Options options;
    options.mostReceived = 1000;
    Start(options);
    error_code failed;
    const auto socket = Open(failed);
    socket->write(asio::buffer(std::string(1001, 'a')), failed);
    beast::flat_buffer buffer;
    socket->read(buffer, failed);
    EXPECT_TRUE(failed);
    EXPECT_TRUE(WaitFor([this] { return last != 0 && viewers.empty(); }));
    EXPECT_TRUE(received.empty());
}

TEST_F(Server, GivesUpAViewerThatTakesNothingAndServesTheOthers) {
    WebServer::Options options;
    options.patience = 50ms;
    options.mostWaiting = 100U << 20;
    Start(options);
    error_code failed;
    const auto frozen = Open(failed);
    ASSERT_TRUE(WaitFor([this] { return viewers.size() == 1; }));
    const WebServer::Viewer first = last;
    const auto other = Open(failed);
    ASSERT_TRUE(WaitFor([this] { return viewers.size() == 2; }));
    const auto large = std::make_shared<const std::string>(1 << 16, 'a');
    for (int i = 0; i < 600; ++i) server->Send(first, large);
    server->Send(last, std::make_shared<const std::string>("quick"));
    beast::flat_buffer buffer;
    other->read(buffer);
    EXPECT_EQ(beast::buffers_to_string(buffer.data()), "quick");
    EXPECT_TRUE(WaitFor([this] { return viewers.size() == 1 && tooSlow == 1; }));
}

TEST_F(Server, GivesUpAViewerForWhomTooMuchWaits) {
    WebServer::Options options;
    options.mostWaiting = 1 << 20;
    Start(options);
    error_code failed;
    const auto socket = Open(failed);
    ASSERT_TRUE(WaitFor([this] { return viewers.size() == 1; }));
    server->Send(last, std::make_shared<const std::string>((1 << 20) + 1, 'a'));
    EXPECT_TRUE(WaitFor([this] { return viewers.empty() && tooSlow == 1; }));
}

// A certificate for tests, of a key of its own.
void MakeCertificate(const std::string& certificate, const std::string& key) {
    EVP_PKEY* const pair = EVP_EC_gen("P-256");
    X509* const made = X509_new();
    ASN1_INTEGER_set(X509_get_serialNumber(made), 1);
    X509_gmtime_adj(X509_getm_notBefore(made), 0);
    X509_gmtime_adj(X509_getm_notAfter(made), 3600);
    X509_set_pubkey(made, pair);
    X509_NAME_add_entry_by_txt(X509_get_subject_name(made), "CN", MBSTRING_ASC,
                               reinterpret_cast<const unsigned char*>("localhost"), -1, -1, 0);
    X509_set_issuer_name(made, X509_get_subject_name(made));
    X509_sign(made, pair, EVP_sha256());
    std::FILE* const first = std::fopen(certificate.c_str(), "wb");
    PEM_write_X509(first, made);
    std::fclose(first);
    std::FILE* const second = std::fopen(key.c_str(), "wb");
    PEM_write_PrivateKey(second, pair, nullptr, nullptr, 0, nullptr, nullptr);
    std::fclose(second);
    X509_free(made);
    EVP_PKEY_free(pair);
}

TEST_F(Server, SpeaksTlsAndAsksForThePassword) {
    const auto own = MakeOwnFolder();
    WebServer::Options options;
    options.certificate = (own->Path() / "c.pem").string();
    options.key = (own->Path() / "k.pem").string();
    options.refusalTime = 10ms;
    EXPECT_THROW(WebServer(options, files, {}), std::runtime_error);
    MakeCertificate(options.certificate, options.key);
    access = {.password = "eight words", .isEncrypted = true};
    Start(options);
    asio::ssl::context context(asio::ssl::context::tls_client);
    const auto ask = [&](const std::string& more) {
        asio::ssl::stream<tcp::socket> stream(Connect(), context);
        stream.handshake(asio::ssl::stream_base::client);
        asio::write(stream, asio::buffer("GET / HTTP/1.1\r\nHost: localhost\r\n" + more + "\r\n"));
        beast::flat_buffer buffer;
        http::response_parser<http::string_body> parser;
        http::read(stream, buffer, parser);
        std::ostringstream text;
        text << parser.get();
        return text.str();
    };
    EXPECT_THAT(ask(""), HasSubstr("WWW-Authenticate: Basic"));
    EXPECT_THAT(ask("Authorization: Basic OmVpZ2h0IHdvcmQ=\r\n"), HasSubstr("401"));
    EXPECT_THAT(ask("Authorization: Basic OmVpZ2h0IHdvcmRz\r\n"), HasSubstr("; Secure"));
    EXPECT_THAT(ask("Cookie: " + cookie + "\r\n"), HasSubstr("<p>page</p>"));

    websocket::stream<asio::ssl::stream<tcp::socket>> socket(Connect(), context);
    socket.next_layer().handshake(asio::ssl::stream_base::client);
    socket.set_option(websocket::stream_base::decorator([&](websocket::request_type& request) {
        request.set(http::field::origin, "https://localhost");
        request.set(http::field::cookie, cookie);
    }));
    socket.handshake("localhost", "/live");
    socket.write(asio::buffer(std::string("hello")));
    EXPECT_TRUE(WaitFor([this] { return received.size() == 1; }));
    error_code failed;
    tcp::socket plain = Connect();  // one that does not speak it
    asio::write(plain, asio::buffer(std::string("GET / HTTP/1.1\r\nHost: localhost\r\n\r\n")), failed);
    std::string said;
    asio::read(plain, asio::dynamic_buffer(said), failed);
    EXPECT_THAT(said, Not(HasSubstr("HTTP")));
}

// Garbage, halves of requests, and connections that say nothing.
TEST_F(Server, StandsWhateverComes) {
    WebServer::Options options;
    options.requestTime = 200ms;
    options.mostConnections = 50;
    Start(options);
    const std::string upgrade =
        "GET /live HTTP/1.1\r\nHost: localhost\r\nOrigin: http://localhost\r\nCookie: " + cookie +
        "\r\nConnection: Upgrade\r\nUpgrade: websocket\r\n";
    const std::string greeting =
        upgrade + "Sec-WebSocket-Version: 13\r\nSec-WebSocket-Key: dGhlIHNhbXBsZSBub25jZQ==\r\n\r\n";
    const std::string pieces[] = {
        "",
        std::string(20000, '\n'),
        std::string("\0\xff\x16\x03\x01", 5),
        "GET / HTTP/1.1\r\nHost: localhost\r\nTransfer-Encoding: chunked\r\n\r\nffffffffffffffff\r\n",
        "GET / HTTP/1.1\r\nHost",
        upgrade + "\r\n",
        greeting + std::string(50, '\xff'),
        greeting + std::string("\x81\xff\x7f\xff\xff\xff\xff\xff\xff\xff", 10),
        greeting + std::string("\x81\x05hello", 7),  // not masked
        greeting + std::string("\x09\x80\0\0\0\0", 6)};
    std::vector<tcp::socket> left;
    for (int round = 0; round < 100; ++round)
        for (const std::string& piece : pieces) {
            error_code ignored;
            tcp::socket socket(io);
            socket.connect(
                {asio::ip::make_address("127.0.0.1"), static_cast<unsigned short>(std::stoi(port))}, ignored);
            asio::write(socket, asio::buffer(piece), ignored);
            if (round % 10 == 0) left.push_back(std::move(socket));  // stays half open
        }
    left.clear();
    for (int attempt = 0; attempt < 200; ++attempt) {
        if (Get("/").find("200 OK") != std::string::npos) return;
        std::this_thread::sleep_for(50ms);
    }
    FAIL() << "the server does not answer any more";
}

}  // namespace
