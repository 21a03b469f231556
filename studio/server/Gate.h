#pragma once

#include <string>
#include <string_view>
#include <vector>

namespace studio {

// What of a request decides whether it is answered. Header fields that are missing are empty.
struct Visitor {
    std::string_view method;
    std::string_view target;
    std::string_view host;
    std::string_view origin;
    std::string_view cookie;
    bool wantsSocket = false;
    std::string_view authorization = {};
};

// What a server that others than this machine can reach asks for.
struct Access {
    std::vector<std::string> names = {};  // and addresses under which it may be asked too
    bool anyAddress = false;              // and under every address: only names can be bound to another one
    std::string password = {};            // that gives the cookie too; empty: there is none
    bool isEncrypted = false;
};

// Decides who may use the server: a browser on an address of this machine that was given the token, and only
// the server's own page in it. Any thread.
class Gate {
 public:
    enum class Answer {
        Serve,
        GiveCookie,   // the token was in the address: keep it in a cookie and show the address without it
        NoSuchHost,   // 421: another name leads here, as with DNS rebinding
        OtherOrigin,  // 403: the page of somebody else asks
        NoToken,      // 401
        NoPassword,   // 401, and the browser asks for one
        NotPassword,  // the same, for a wrong one: the answer takes its time
        NoMethod      // 405
    };

    Gate(std::string secretToken, int serverPort, Access serverAccess = {});

    Answer Judge(const Visitor& visitor) const;
    // The value of the header Set-Cookie for GiveCookie.
    std::string Cookie() const;
    const std::string& Token() const { return token; }

    // 32 random bytes of the system as hexadecimal digits.
    static std::string MakeToken();
    // In a time that depends on the lengths alone.
    static bool Equals(std::string_view a, std::string_view b);

 private:
    bool IsOwnHost(std::string_view host) const;
    bool HasCookie(std::string_view cookies) const;
    bool IsPassword(std::string_view authorization) const;

    std::string token;
    std::string cookieName;
    Access access;
};

// The value of `name` in the query of an address; empty when it has none. Nothing is decoded.
std::string_view QueryValue(std::string_view target, std::string_view name);

}  // namespace studio
