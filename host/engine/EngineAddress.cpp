#include "host/engine/EngineAddress.h"

#include <algorithm>
#include <charconv>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string_view>

#include "host/GraphBuilder.h"
#include "host/GraphText.h"
#include "sigweave/services/Bilingual.h"

namespace host::engine {
namespace {

using tc::Bilingual;

struct Secret {
    const char* name;  // in the file
    const char* variable;
    std::string EngineAddress::*value;
    bool isSecretFile;
};

constexpr const char* SECRETS_FILE = "SIGWEAVE_ENGINE_SECRETS";
constexpr std::uintmax_t LARGEST_FILE = 65536;
constexpr Secret SECRETS[] = {
    {"user", "SIGWEAVE_ENGINE_USER", &EngineAddress::user, false},
    {"password", "SIGWEAVE_ENGINE_PASSWORD", &EngineAddress::password, false},
    {"token", "SIGWEAVE_ENGINE_TOKEN", &EngineAddress::token, false},
    {"credentials", "SIGWEAVE_ENGINE_CREDENTIALS", &EngineAddress::credentials, true},
    {"ca", "SIGWEAVE_ENGINE_CA", &EngineAddress::authority, false},
    {"certificate", "SIGWEAVE_ENGINE_CERTIFICATE", &EngineAddress::certificate, false},
    {"key", "SIGWEAVE_ENGINE_KEY", &EngineAddress::key, true},
};

std::string Variable(const char* name) {
    const char* const value = std::getenv(name);
    return value != nullptr ? value : "";
}

// Why the file must not be used for secrets; empty when it may.
std::string WhyNotSecret(const std::string& path) {
    namespace fs = std::filesystem;
    std::error_code failed;
    const fs::file_status status = fs::status(path, failed);
    if (failed || !fs::is_regular_file(status))
        return Bilingual("%1: there is no such file; check the path",
                         "%1: diese Datei gibt es nicht; prüfen Sie den Pfad")
            .With({path});
    constexpr fs::perms OTHERS = fs::perms::group_all | fs::perms::others_all;
    if ((status.permissions() & OTHERS) != fs::perms::none)
        return Bilingual(
                   "%1: others may use this file with secrets; run 'chmod 600 %1'",
                   "%1: andere dürfen diese Datei mit Geheimnissen benutzen; führen Sie 'chmod 600 %1' aus")
            .With({path});
    return "";
}

bool ReadLine(std::string_view line, EngineAddress& address) {
    line = TrimBlanks(line);
    if (line.empty() || line.front() == '#') return true;
    const auto setting = SplitTextSetting(line);
    if (!setting) return false;
    const auto found = std::ranges::find(SECRETS, setting->name,
                                         [](const Secret& each) { return std::string_view(each.name); });
    if (found == std::end(SECRETS)) return false;
    address.*found->value = setting->value;
    return true;
}

bool ReadSecrets(const std::string& path, EngineAddress& address, std::string& error) {
    error = WhyNotSecret(path);
    if (!error.empty()) return false;
    std::ifstream file(path, std::ios::binary);
    std::string text(std::istreambuf_iterator<char>(file), {});
    if (!file || text.size() > LARGEST_FILE) {
        error = Bilingual("%1 cannot be read", "%1 ist nicht lesbar").With({path});
        return false;
    }
    std::string_view rest = text;
    for (int number = 1; !rest.empty(); ++number)
        if (!ReadLine(TakeTextLine(rest).text, address)) {
            error =
                Bilingual(
                    "%1, line %2: must be user=, password=, token=, credentials=, ca=, certificate= or key=",
                    "%1, Zeile %2: muss user=, password=, token=, credentials=, ca=, certificate= oder key= "
                    "sein")
                    .With({path, std::to_string(number)});
            return false;
        }
    return true;
}

}  // namespace

std::string WhyNoUrl(const std::string& url) {
    for (std::size_t begin = 0; begin <= url.size();) {
        const std::size_t end = std::min(url.find(',', begin), url.size());
        const std::string_view one = std::string_view(url).substr(begin, end - begin);
        const std::size_t scheme = one.find("://");
        const bool isKnown = one.starts_with("nats://") || one.starts_with("tls://");
        const std::string_view host = isKnown ? one.substr(scheme + 3) : std::string_view();
        if (host.find('@') != std::string_view::npos)
            return Bilingual(
                       "the address must not hold a user or a password; use SIGWEAVE_ENGINE_USER and "
                       "_PASSWORD, or a "
                       "file that SIGWEAVE_ENGINE_SECRETS names",
                       "die Adresse darf weder Benutzer noch Kennwort enthalten; benutzen Sie "
                       "SIGWEAVE_ENGINE_USER und "
                       "_PASSWORD, oder eine Datei, die SIGWEAVE_ENGINE_SECRETS nennt")
                .Text();
        const std::size_t colon = host.rfind(':');
        unsigned port = 0;
        const std::string_view digits =
            colon != std::string_view::npos ? host.substr(colon + 1) : std::string_view("4222");
        const auto read = std::from_chars(digits.data(), digits.data() + digits.size(), port);
        constexpr unsigned LAST_PORT = 65535;
        if (host.empty() || colon == 0 || read.ptr != digits.data() + digits.size() ||
            read.ec != std::errc() || port == 0 || port > LAST_PORT ||
            host.find_first_of(" \t/\"'") != std::string_view::npos)
            return Bilingual("'%1' is no address of a server; it must be nats://HOST:PORT or tls://HOST:PORT",
                             "'%1' ist keine Adresse eines Servers; sie muss nats://HOST:PORT oder "
                             "tls://HOST:PORT lauten")
                .With({one});
        begin = end + 1;
    }
    return "";
}

bool AddSecrets(EngineAddress& address, std::string& error) {
    const std::string file = Variable(SECRETS_FILE);
    if (!file.empty() && !ReadSecrets(file, address, error)) return false;
    for (const Secret& secret : SECRETS) {
        const std::string value = Variable(secret.variable);
        if (!value.empty()) address.*secret.value = value;
        const std::string& path = address.*secret.value;
        if (!secret.isSecretFile || path.empty()) continue;
        error = WhyNotSecret(path);
        if (!error.empty()) return false;
    }
    return true;
}

}  // namespace host::engine
