#include "studio/server/Gate.h"

#include <algorithm>
#include <random>

namespace studio {
namespace {

std::string_view Trim(std::string_view text) {
    const std::size_t first = text.find_first_not_of(" \t");
    if (first == std::string_view::npos) return {};
    return text.substr(first, text.find_last_not_of(" \t") - first + 1);
}

// Without the port: "localhost:8080", "[::1]:8080".
std::string_view NameOf(std::string_view host) {
    const std::size_t bracket = host.starts_with('[') ? host.find(']') : 0;
    if (bracket == std::string_view::npos) return {};
    const std::size_t colon = host.find(':', bracket);
    const std::string_view port =
        colon == std::string_view::npos ? std::string_view("0") : host.substr(colon + 1);
    const auto isDigit = [](char c) { return c >= '0' && c <= '9'; };
    if (port.empty() || !std::ranges::all_of(port, isDigit)) return {};
    return host.substr(0, colon);
}

bool EqualsIgnoringCase(std::string_view a, std::string_view b) {
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c + 32) : c; };
    return std::ranges::equal(a, b, {}, lower, lower);
}

// As it is in the header Host: "192.168.0.7", "[fe80::1]".
bool IsAddress(std::string_view name) {
    if (name.starts_with('[')) return name.ends_with(']');
    return name.find_first_not_of("0123456789.") == std::string_view::npos &&
           std::ranges::count(name, '.') == 3;
}

constexpr std::string_view SIXTY_FOUR = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string FromBase64(std::string_view text) {
    std::string bytes;
    unsigned bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t value = SIXTY_FOUR.find(c);
        if (value == std::string_view::npos) break;
        bits = (bits << 6 | static_cast<unsigned>(value)) & 0xFFFFFFU;
        count += 6;
        if (count < 8) continue;
        count -= 8;
        bytes += static_cast<char>(bits >> count & 0xFFU);
    }
    return bytes;
}

}  // namespace

std::string_view QueryValue(std::string_view target, std::string_view name) {
    const std::size_t begin = target.find('?');
    if (begin == std::string_view::npos) return {};
    std::string_view query = target.substr(begin + 1);
    while (!query.empty()) {
        const std::size_t end = std::min(query.find('&'), query.size());
        const std::string_view pair = query.substr(0, end);
        if (pair.size() > name.size() && pair.starts_with(name) && pair[name.size()] == '=')
            return pair.substr(name.size() + 1);
        query.remove_prefix(std::min(end + 1, query.size()));
    }
    return {};
}

// A browser sends a cookie to every port of a machine, so that each server needs a name of its own.
Gate::Gate(std::string secretToken, int serverPort, Access serverAccess)
    : token(std::move(secretToken)),
      cookieName("sigweave-" + std::to_string(serverPort)),
      access(std::move(serverAccess)) {}

std::string Gate::MakeToken() {
    std::random_device device;  // the system's source
    constexpr const char* DIGITS = "0123456789abcdef";
    std::string made;
    while (made.size() < 64) {
        unsigned bits = device();
        for (int i = 0; i < 8; ++i, bits >>= 4) made += DIGITS[bits & 15U];
    }
    return made;
}

bool Gate::Equals(std::string_view a, std::string_view b) {
    if (a.size() != b.size()) return false;
    volatile unsigned difference = 0;
    for (std::size_t i = 0; i < a.size(); ++i)
        difference = difference | (static_cast<unsigned char>(a[i]) ^
                                   static_cast<unsigned>(static_cast<unsigned char>(b[i])));
    return difference == 0;
}

// A tunnel may have another port at its near end, so the port does not count; names are what rebinding needs.
bool Gate::IsOwnHost(std::string_view host) const {
    const std::string_view name = NameOf(host);
    if (name.empty()) return false;
    for (const std::string_view own : {"localhost", "127.0.0.1", "[::1]"})
        if (EqualsIgnoringCase(name, own)) return true;
    if (access.anyAddress && IsAddress(name)) return true;
    return std::ranges::any_of(access.names,
                               [&](const std::string& own) { return EqualsIgnoringCase(name, own); });
}

bool Gate::HasCookie(std::string_view cookies) const {
    bool found = false;
    while (!cookies.empty()) {
        const std::size_t end = std::min(cookies.find(';'), cookies.size());
        const std::string_view pair = Trim(cookies.substr(0, end));
        const std::size_t split = pair.find('=');
        if (split != std::string_view::npos && pair.substr(0, split) == cookieName)
            found = Equals(pair.substr(split + 1), token) || found;
        cookies.remove_prefix(std::min(end + 1, cookies.size()));
    }
    return found;
}

// "Basic" and name:password in base 64, whatever the name.
bool Gate::IsPassword(std::string_view authorization) const {
    constexpr std::string_view SCHEME = "Basic ";
    if (authorization.size() < SCHEME.size() ||
        !EqualsIgnoringCase(authorization.substr(0, SCHEME.size()), SCHEME))
        return false;
    const std::string given = FromBase64(Trim(authorization.substr(SCHEME.size())));
    const std::size_t colon = given.find(':');
    return colon != given.npos && Equals(std::string_view(given).substr(colon + 1), access.password);
}

Gate::Answer Gate::Judge(const Visitor& visitor) const {
    if (!IsOwnHost(visitor.host)) return Answer::NoSuchHost;
    const bool sameOrigin = EqualsIgnoringCase(
        visitor.origin, (access.isEncrypted ? "https://" : "http://") + std::string(visitor.host));
    if (!sameOrigin && (visitor.wantsSocket || !visitor.origin.empty())) return Answer::OtherOrigin;
    if (visitor.method != "GET" && visitor.method != "HEAD") return Answer::NoMethod;
    const std::string_view given = QueryValue(visitor.target, "token");
    if (!given.empty() && !visitor.wantsSocket)
        return Equals(given, token) ? Answer::GiveCookie : Answer::NoToken;
    if (HasCookie(visitor.cookie)) return Answer::Serve;
    if (access.password.empty() || visitor.wantsSocket) return Answer::NoToken;
    if (visitor.authorization.empty()) return Answer::NoPassword;
    return IsPassword(visitor.authorization) ? Answer::GiveCookie : Answer::NotPassword;
}

std::string Gate::Cookie() const {
    return cookieName + "=" + token + "; HttpOnly; SameSite=Strict; Path=/" +
           (access.isEncrypted ? "; Secure" : "");
}

}  // namespace studio
