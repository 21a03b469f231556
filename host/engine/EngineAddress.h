#pragma once

#include <string>

namespace host::engine {

// Where the server is that joins the parts of a run, and what it demands. The secrets come from the
// environment or a file for its owner alone (docs/machines.md), never from a graph or a command line, and
// nothing prints them.
struct EngineAddress {
    std::string url;  // nats://host:4222 or tls://host:4222; several are separated by commas

    std::string user;
    std::string password;
    std::string token;
    std::string credentials;  // path of a file
    std::string authority;    // path of the certificates that are trusted; empty: the system's
    std::string certificate;  // path of the own certificate, and of its key
    std::string key;
};

// Why the text cannot be the address of a server; empty when it can.
std::string WhyNoUrl(const std::string& url);

// Adds what SIGWEAVE_ENGINE_USER, _PASSWORD, _TOKEN, _CREDENTIALS, _CA, _CERTIFICATE and _KEY say, after the
// file that SIGWEAVE_ENGINE_SECRETS names with lines user=..., password=... and so on. False, with the reason
// in the user's language, when one of the files cannot be used.
bool AddSecrets(EngineAddress& address, std::string& error);

}  // namespace host::engine
