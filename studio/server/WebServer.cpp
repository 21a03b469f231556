#include "studio/server/WebServer.h"

#include <boost/asio.hpp>
#include <boost/asio/ssl.hpp>
#include <boost/beast/core.hpp>
#include <boost/beast/http.hpp>
#include <boost/beast/ssl.hpp>
#include <boost/beast/websocket.hpp>
#include <boost/beast/websocket/ssl.hpp>
#include <deque>
#include <iostream>
#include <map>
#include <optional>
#include <stdexcept>

namespace studio {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace http = beast::http;
namespace websocket = beast::websocket;
using boost::system::error_code;
using tcp = asio::ip::tcp;
using PlainStream = beast::tcp_stream;
using CodedStream = beast::ssl_stream<beast::tcp_stream>;

constexpr std::size_t MOST_HEADER = 8192;
constexpr std::size_t MOST_BODY = 1024;           // nobody has to send any
constexpr std::size_t BYTES_A_MILLISECOND = 100;  // that a line has at least, for long messages
constexpr const char* SOCKET_PATH = "/live";

using Request = http::request<http::string_body>;
using Response = http::response<http::string_body>;

std::string_view View(beast::string_view text) {
    return {text.data(), text.size()};
}

Visitor VisitorOf(const Request& request) {
    return {View(request.method_string()),
            View(request.target()),
            View(request[http::field::host]),
            View(request[http::field::origin]),
            View(request[http::field::cookie]),
            websocket::is_upgrade(request),
            View(request[http::field::authorization])};
}

// A style may be set by script, as editors do; scripts come from files of the page alone.
void Protect(Response& response) {
    response.set(
        "Content-Security-Policy",
        "default-src 'none'; script-src 'self'; style-src 'self' 'unsafe-inline'; img-src 'self' data:; "
        "font-src 'self'; connect-src 'self'; base-uri 'none'; form-action 'none'; "
        "frame-ancestors 'none'");
    response.set("X-Content-Type-Options", "nosniff");
    response.set("X-Frame-Options", "DENY");
    response.set("Referrer-Policy", "no-referrer");
    response.set("Cross-Origin-Opener-Policy", "same-origin");
    response.set("Cross-Origin-Resource-Policy", "same-origin");
}

struct Refusal {
    http::status status;
    const char* text;
};

// In the order of Gate::Answer.
Refusal RefusalOf(Gate::Answer answer) {
    switch (answer) {
        case Gate::Answer::NoSuchHost:
            return {http::status::misdirected_request, "This server is not reached by this name.\n"};
        case Gate::Answer::OtherOrigin:
            return {http::status::forbidden, "Only the server's own page may ask.\n"};
        case Gate::Answer::NoMethod:
            return {http::status::method_not_allowed, "Only GET and HEAD are answered.\n"};
        case Gate::Answer::NoPassword:
        case Gate::Answer::NotPassword:
            return {http::status::unauthorized, "The password of the studio is needed.\n"};
        default:
            return {http::status::unauthorized,
                    "The token is missing or old: open the address that 'sigweave studio' printed.\n"};
    }
}

// One at a WebSocket. On the server's thread.
struct Client {
    virtual ~Client() = default;
    // The parts are one message.
    virtual void Send(std::vector<WebServer::Message> parts, bool isBinary) = 0;
    virtual void Drop() = 0;
    virtual void Close() = 0;
};

}  // namespace

struct WebServer::Impl {
    Impl(const Options& serverOptions, const PageFiles& pageFiles, Handlers viewerHandlers)
        : options(serverOptions),
          files(pageFiles),
          handlers(std::move(viewerHandlers)),
          acceptor(io),
          signal(io) {}

    void Accept();
    void Add(Viewer viewer, const std::shared_ptr<Client>& session) { viewers[viewer] = session; }

    Options options;
    const PageFiles& files;
    Handlers handlers;
    std::optional<Gate> gate;
    std::optional<asio::ssl::context> tls;
    std::map<Viewer, std::weak_ptr<Client>> viewers;
    Viewer lastViewer = 0;
    int connections = 0;
    bool stopping = false;
    asio::io_context io{1};  // ends before the above, for it holds the sessions
    tcp::acceptor acceptor;
    asio::steady_timer signal;  // the end, and pauses of accepting
};

namespace {

// A viewer at a WebSocket. Everything on the server's thread.
template <class Stream>
class Session final : public Client, public std::enable_shared_from_this<Session<Stream>> {
 public:
    Session(WebServer::Impl& serverImpl, Stream&& stream)
        : server(serverImpl), socket(std::move(stream)), watchdog(server.io) {}
    ~Session() override {
        --server.connections;
        if (viewer == 0) return;
        server.viewers.erase(viewer);
        if (!server.stopping) server.handlers.closed(viewer, tooSlow);
    }

    void Begin(const Request& request) {
        auto timeout = websocket::stream_base::timeout::suggested(beast::role_type::server);
        timeout.handshake_timeout = server.options.requestTime;
        socket.set_option(timeout);
        socket.read_message_max(server.options.mostReceived);
        socket.write_buffer_bytes(65536);
        socket.async_accept(request, [self = this->shared_from_this()](error_code failed) {
            if (failed) return;
            self->viewer = ++self->server.lastViewer;
            self->server.Add(self->viewer, self);
            self->server.handlers.opened(self->viewer);
            self->Read();
        });
    }

    void Send(std::vector<WebServer::Message> parts, bool isBinary) override {
        if (isClosing) return;
        std::size_t size = 0;
        for (const WebServer::Message& part : parts) size += part->size();
        waiting += size;
        queue.push_back({std::move(parts), size, isBinary});
        if (waiting > server.options.mostWaiting) return Drop();
        if (queue.size() == 1) Write();
    }

    // It takes nothing: what waits for it is given up.
    void Drop() override {
        tooSlow = true;
        End();
    }

    void Close() override {
        if (std::exchange(isClosing, true)) return;
        if (queue.empty()) SayGoodbye();
    }

 private:
    void Read() {
        socket.async_read(buffer, [self = this->shared_from_this()](error_code failed, std::size_t) {
            if (failed) return self->End();
            if (self->socket.got_text())
                self->server.handlers.received(self->viewer, beast::buffers_to_string(self->buffer.data()));
            self->buffer.consume(self->buffer.size());
            self->Read();
        });
    }

    void Write() {
        const Waiting& next = queue.front();
        socket.binary(next.isBinary);
        using std::chrono::milliseconds;
        watchdog.expires_after(server.options.patience + milliseconds(next.size / BYTES_A_MILLISECOND));
        watchdog.async_wait([weak = this->weak_from_this()](error_code cancelled) {
            const auto self = weak.lock();
            if (!cancelled && self != nullptr) self->Drop();
        });
        std::vector<asio::const_buffer> bytes;
        for (const WebServer::Message& part : next.parts) bytes.emplace_back(asio::buffer(*part));
        socket.async_write(bytes, [self = this->shared_from_this()](error_code failed, std::size_t) {
            self->watchdog.cancel();
            if (failed) return self->End();
            self->waiting -= self->queue.front().size;
            self->queue.pop_front();
            if (!self->queue.empty()) return self->Write();
            if (self->isClosing) self->SayGoodbye();
        });
    }

    void SayGoodbye() {
        socket.async_close(websocket::close_code::going_away,
                           [self = this->shared_from_this()](error_code) {});
    }

    void End() {
        isClosing = true;
        beast::get_lowest_layer(socket).close();
    }

    struct Waiting {
        std::vector<WebServer::Message> parts;
        std::size_t size;  // bytes of all
        bool isBinary;
    };

    WebServer::Impl& server;
    websocket::stream<Stream> socket;
    asio::steady_timer watchdog;
    beast::flat_buffer buffer;
    std::deque<Waiting> queue;  // the first is being written
    std::size_t waiting = 0;
    WebServer::Viewer viewer = 0;
    bool isClosing = false;
    bool tooSlow = false;
};

// Requests for files, one after the other, until one asks for a WebSocket.
template <class Stream>
class Connection : public std::enable_shared_from_this<Connection<Stream>> {
 public:
    template <class... More>
    explicit Connection(WebServer::Impl& serverImpl, tcp::socket&& accepted, More&... more)
        : server(serverImpl), stream(std::move(accepted), more...), pause(serverImpl.io) {}
    ~Connection() {
        if (!handedOn) --server.connections;
    }

    void Begin() {
        if constexpr (std::is_same_v<Stream, PlainStream>) {
            Read();
        } else {
            Lowest().expires_after(server.options.requestTime);
            stream.async_handshake(asio::ssl::stream_base::server,
                                   [self = this->shared_from_this()](error_code failed) {
                                       if (!failed) self->Read();
                                   });
        }
    }

 private:
    beast::tcp_stream& Lowest() { return beast::get_lowest_layer(stream); }

    void Read() {
        parser.emplace();
        parser->header_limit(MOST_HEADER);
        parser->body_limit(MOST_BODY);
        Lowest().expires_after(server.options.requestTime);
        http::async_read(
            stream, buffer, *parser,
            [self = this->shared_from_this()](error_code failed, std::size_t) { self->Handle(failed); });
    }

    void Handle(error_code failed) {
        if (failed == http::error::header_limit || failed == http::error::body_limit)
            return Refuse({http::status::payload_too_large, "The request is too long.\n"}, false);
        if (failed) return;
        const Request& request = parser->get();
        const Gate::Answer answer = server.gate->Judge(VisitorOf(request));
        if (answer == Gate::Answer::GiveCookie) return Welcome();
        if (answer == Gate::Answer::NotPassword) return RefuseLater(RefusalOf(answer));
        if (answer == Gate::Answer::NoPassword) return Refuse(RefusalOf(answer), request.keep_alive(), true);
        if (answer != Gate::Answer::Serve) return Refuse(RefusalOf(answer), request.keep_alive());
        if (websocket::is_upgrade(request)) return Upgrade();
        const PageFile* const file = server.files.Find(View(request.target()));
        if (file == nullptr)
            return Refuse({http::status::not_found, "There is no such file.\n"}, request.keep_alive());
        Response response(http::status::ok, request.version());
        response.set(http::field::content_type, file->type);
        response.set(http::field::cache_control,
                     file->mayBeKept ? "private, max-age=31536000, immutable" : "no-cache");
        response.keep_alive(request.keep_alive());
        response.body() = file->bytes;
        Answer(std::move(response));
    }

    void Upgrade() {
        if (View(parser->get().target()) != SOCKET_PATH)
            return Refuse({http::status::not_found, "There is no such address.\n"}, false);
        Lowest().expires_never();
        handedOn = true;
        std::make_shared<Session<Stream>>(server, std::move(stream))->Begin(parser->get());
    }

    void Welcome() {
        Response response(http::status::see_other, parser->get().version());
        response.set(http::field::location, "/");
        response.set(http::field::set_cookie, server.gate->Cookie());
        response.set(http::field::cache_control, "no-store");
        response.keep_alive(parser->get().keep_alive());
        Answer(std::move(response));
    }

    // Who guesses waits, and holds up nobody else.
    void RefuseLater(const Refusal& refusal) {
        pause.expires_after(server.options.refusalTime);
        pause.async_wait(
            [self = this->shared_from_this(), refusal](error_code) { self->Refuse(refusal, false, true); });
    }

    void Refuse(const Refusal& refusal, bool goesOn, bool asksForPassword = false) {
        Response response(refusal.status, 11);
        response.set(http::field::content_type, "text/plain; charset=utf-8");
        response.set(http::field::cache_control, "no-store");
        response.keep_alive(goesOn);
        if (asksForPassword)
            response.set(http::field::www_authenticate, "Basic realm=\"sigweave studio\", charset=\"UTF-8\"");
        response.body() = refusal.text;
        Answer(std::move(response));
    }

    void Answer(Response&& response) {
        Protect(response);
        response.prepare_payload();
        if (parser->get().method() == http::verb::head) response.body().clear();
        const auto kept = std::make_shared<Response>(std::move(response));
        Lowest().expires_after(server.options.requestTime);
        http::async_write(stream, *kept,
                          [self = this->shared_from_this(), kept](error_code failed, std::size_t) {
                              if (failed) return;
                              if (!kept->need_eof() && !self->server.stopping) return self->Read();
                              error_code ignored;
                              self->Lowest().socket().shutdown(tcp::socket::shutdown_send, ignored);
                          });
    }

    WebServer::Impl& server;
    Stream stream;
    asio::steady_timer pause;
    beast::flat_buffer buffer;
    std::optional<http::request_parser<http::string_body>> parser;
    bool handedOn = false;
};

}  // namespace

namespace {

asio::ssl::context MakeTls(const WebServer::Options& options) {
    asio::ssl::context tls(asio::ssl::context::tls_server);
    tls.set_options(asio::ssl::context::default_workarounds | asio::ssl::context::no_tlsv1 |
                    asio::ssl::context::no_tlsv1_1);
    const auto read = [](const std::string& file, auto&& load) {
        error_code failed;
        load(failed);
        if (failed) throw std::runtime_error(file + ": " + failed.message());
    };
    read(options.certificate,
         [&](error_code& failed) { tls.use_certificate_chain_file(options.certificate, failed); });
    read(options.key,
         [&](error_code& failed) { tls.use_private_key_file(options.key, asio::ssl::context::pem, failed); });
    return tls;
}

}  // namespace

void WebServer::Impl::Accept() {
    acceptor.async_accept([this](error_code failed, tcp::socket accepted) {
        if (stopping) return;
        if (failed) {  // as with too many open files: not at once again
            signal.expires_after(std::chrono::milliseconds(100));
            return signal.async_wait([this](error_code cancelled) {
                if (!cancelled && !stopping) Accept();
            });
        }
        if (connections < options.mostConnections) {
            ++connections;
            error_code ignored;
            accepted.set_option(tcp::no_delay(true), ignored);
            accepted.set_option(asio::socket_base::send_buffer_size(1 << 18), ignored);
            if (tls.has_value())
                std::make_shared<Connection<CodedStream>>(*this, std::move(accepted), *tls)->Begin();
            else
                std::make_shared<Connection<PlainStream>>(*this, std::move(accepted))->Begin();
        }
        Accept();
    });
}

WebServer::WebServer(const Options& serverOptions, const PageFiles& pageFiles, Handlers viewerHandlers)
    : impl(std::make_unique<Impl>(serverOptions, pageFiles, std::move(viewerHandlers))) {
    if (!serverOptions.certificate.empty()) impl->tls.emplace(MakeTls(serverOptions));
    const tcp::endpoint wanted(asio::ip::make_address(serverOptions.address),
                               static_cast<unsigned short>(serverOptions.port));
    impl->acceptor.open(wanted.protocol());
    impl->acceptor.set_option(asio::socket_base::reuse_address(true));
    impl->acceptor.bind(wanted);
    impl->acceptor.listen();
    impl->gate.emplace(Gate::MakeToken(), Port());
}

WebServer::~WebServer() = default;

int WebServer::Port() const {
    return impl->acceptor.local_endpoint().port();
}

void WebServer::SetGate(Gate gate) {
    impl->gate.emplace(std::move(gate));
}

void WebServer::Run() {
    impl->Accept();
    while (!impl->io.stopped()) {
        try {
            impl->io.run();
        } catch (const std::exception& error) {  // of one viewer; the others go on
            std::cerr << error.what() << "\n";
        }
    }
}

void WebServer::Stop() {
    asio::post(impl->io, [this] {
        impl->stopping = true;
        error_code ignored;
        impl->acceptor.close(ignored);
        const auto all = impl->viewers;
        for (const auto& [viewer, weak] : all)
            if (const auto session = weak.lock()) session->Close();
        impl->signal.expires_after(std::chrono::seconds(1));
        impl->signal.async_wait([this](error_code) { impl->io.stop(); });
    });
}

void WebServer::Send(Viewer viewer, Message text) {
    asio::post(impl->io, [this, viewer, text = std::move(text)] {
        const auto found = impl->viewers.find(viewer);
        if (found == impl->viewers.end()) return;
        if (const auto session = found->second.lock()) session->Send({text}, false);
    });
}

void WebServer::SendBinary(Viewer viewer, std::vector<Message> pictures) {
    asio::post(impl->io, [this, viewer, pictures = std::move(pictures)] {
        const auto found = impl->viewers.find(viewer);
        if (found == impl->viewers.end()) return;
        if (const auto session = found->second.lock()) session->Send(pictures, true);
    });
}

void WebServer::Drop(Viewer viewer) {
    asio::post(impl->io, [this, viewer] {
        const auto found = impl->viewers.find(viewer);
        if (found == impl->viewers.end()) return;
        if (const auto session = found->second.lock()) session->Drop();
    });
}

}  // namespace studio
