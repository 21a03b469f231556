#include <gtest/gtest.h>

#include "studio/server/Gate.h"

namespace {

using studio::Gate;
using studio::Visitor;
using Answer = Gate::Answer;

TEST(Gate, LetsInOnlyTheOwnPageWithTheToken) {
    const Gate gate("0123abcd", 8080, {.names = {"lab.example"}});
    constexpr const char* COOKIE = "theme=dark; sigweave-8080=0123abcd";
    const struct {
        Visitor visitor;  // method, target, host, origin, cookie, socket
        Answer answer;
    } rows[] = {
        {{"GET", "/", "127.0.0.1:8080", "", COOKIE}, Answer::Serve},
        {{"HEAD", "/", "localhost:8080", "", COOKIE}, Answer::Serve},
        {{"GET", "/", "LOCALHOST", "", COOKIE}, Answer::Serve},
        {{"GET", "/", "[::1]:9", "", COOKIE}, Answer::Serve},  // through a tunnel
        {{"GET", "/", "lab.example:8080", "", COOKIE}, Answer::Serve},
        {{"GET", "/live", "127.0.0.1:8080", "http://127.0.0.1:8080", COOKIE, true}, Answer::Serve},
        {{"GET", "/?token=0123abcd", "127.0.0.1:8080", "", ""}, Answer::GiveCookie},
        {{"GET", "/?a=b&token=0123abcd", "127.0.0.1:8080", "", ""}, Answer::GiveCookie},
        // Names that lead here by somebody else's doing.
        {{"GET", "/", "evil.example:8080", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "127.0.0.1.evil.example", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "evil.example:127.0.0.1", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "localhost:80@evil", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "[::1", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "", "", COOKIE}, Answer::NoSuchHost},
        // Pages of others, also of another port.
        {{"GET", "/live", "127.0.0.1:8080", "http://evil.example", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/live", "127.0.0.1:8080", "http://127.0.0.1:81", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/live", "127.0.0.1:8080", "https://127.0.0.1:8080", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/live", "127.0.0.1:8080", "null", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/live", "127.0.0.1:8080", "", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/", "127.0.0.1:8080", "http://evil.example", COOKIE}, Answer::OtherOrigin},
        // Without the token, or with another.
        {{"GET", "/", "127.0.0.1:8080", "", ""}, Answer::NoToken},
        {{"GET", "/", "127.0.0.1:8080", "", "sigweave-8080=0123abce"}, Answer::NoToken},
        {{"GET", "/", "127.0.0.1:8080", "", "sigweave-8080="}, Answer::NoToken},
        {{"GET", "/", "127.0.0.1:8080", "", "sigweave-8081=0123abcd"}, Answer::NoToken},
        {{"GET", "/?token=0123abc", "127.0.0.1:8080", "", ""}, Answer::NoToken},
        {{"GET", "/?tokens=0123abcd", "127.0.0.1:8080", "", ""}, Answer::NoToken},
        {{"GET", "/live?token=0123abcd", "127.0.0.1:8080", "http://127.0.0.1:8080", "", true},
         Answer::NoToken},
        {{"POST", "/", "127.0.0.1:8080", "", COOKIE}, Answer::NoMethod},
    };
    for (const auto& row : rows)
        EXPECT_EQ(gate.Judge(row.visitor), row.answer)
            << row.visitor.target << " | " << row.visitor.host << " | " << row.visitor.origin;
}

TEST(Gate, AsksForThePasswordOnce) {
    const Gate gate("0123abcd", 8080, {.anyAddress = true, .password = "eight:words", .isEncrypted = true});
    constexpr const char* HOST = "192.168.0.7:8080";
    constexpr const char* COOKIE = "sigweave-8080=0123abcd";
    const struct {
        Visitor visitor;  // method, target, host, origin, cookie, socket, authorization
        Answer answer;
    } rows[] = {
        {{"GET", "/", HOST, "", ""}, Answer::NoPassword},
        {{"GET", "/", HOST, "", "", false, "Basic YW55Ym9keTplaWdodDp3b3Jkcw=="}, Answer::GiveCookie},
        {{"GET", "/", HOST, "", "", false, "basic OmVpZ2h0OndvcmRz"}, Answer::GiveCookie},
        {{"GET", "/", HOST, "", "", false, "Basic ZWlnaHQ6d29yZHM="}, Answer::NotPassword},  // "words"
        {{"GET", "/", HOST, "", "", false, "Basic !!!!"}, Answer::NotPassword},
        {{"GET", "/", HOST, "", "", false, "Bearer 0123abcd"}, Answer::NotPassword},
        {{"GET", "/", HOST, "", COOKIE}, Answer::Serve},
        {{"GET", "/live", HOST, "https://192.168.0.7:8080", COOKIE, true}, Answer::Serve},
        {{"GET", "/live", HOST, "http://192.168.0.7:8080", COOKIE, true}, Answer::OtherOrigin},
        {{"GET", "/live", HOST, "https://192.168.0.7:8080", "", true, "Basic OmVpZ2h0OndvcmRz"},
         Answer::NoToken},
        {{"GET", "/", "evil.example", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "1.2.3.4.evil", "", COOKIE}, Answer::NoSuchHost},
        {{"GET", "/", "[fe80::1]:8080", "", COOKIE}, Answer::Serve},
    };
    for (const auto& row : rows)
        EXPECT_EQ(gate.Judge(row.visitor), row.answer)
            << row.visitor.target << " | " << row.visitor.host << " | " << row.visitor.authorization;
    EXPECT_TRUE(gate.Cookie().ends_with("; Secure"));
}

TEST(Gate, MakesTokensThatNobodyGuesses) {
    const std::string token = Gate::MakeToken();
    EXPECT_EQ(token.size(), 64u);
    EXPECT_EQ(token.find_first_not_of("0123456789abcdef"), token.npos);
    EXPECT_NE(token, Gate::MakeToken());
    EXPECT_NE(Gate(token, 1).Cookie().find("HttpOnly; SameSite=Strict"), std::string::npos);
}

}  // namespace
