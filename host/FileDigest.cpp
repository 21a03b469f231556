#include "host/FileDigest.h"

#include <openssl/evp.h>

#include <filesystem>
#include <fstream>
#include <memory>
#include <vector>

namespace host {

namespace {

void AppendHex(std::string& text, const unsigned char* bytes, unsigned count) {
    constexpr char DIGITS[] = "0123456789abcdef";
    for (unsigned i = 0; i < count; ++i) {
        text += DIGITS[bytes[i] >> 4];
        text += DIGITS[bytes[i] & 15];
    }
}

}  // namespace

bool ComputeDigest(const std::string& path, FileDigest& digest) {
    constexpr std::size_t PIECE = 1 << 20;
    std::error_code ignored;
    if (!std::filesystem::is_regular_file(path, ignored)) return false;
    std::ifstream file(path, std::ios::binary);
    const std::unique_ptr<EVP_MD_CTX, void (*)(EVP_MD_CTX*)> context(EVP_MD_CTX_new(), EVP_MD_CTX_free);
    if (!file || context == nullptr || EVP_DigestInit_ex(context.get(), EVP_sha256(), nullptr) != 1)
        return false;
    std::vector<char> piece(PIECE);
    digest = {};
    while (file.read(piece.data(), PIECE), file.gcount() > 0) {
        EVP_DigestUpdate(context.get(), piece.data(), static_cast<std::size_t>(file.gcount()));
        digest.bytes += file.gcount();
    }
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned count = 0;
    if (file.bad() || EVP_DigestFinal_ex(context.get(), bytes, &count) != 1) return false;
    AppendHex(digest.sha256, bytes, count);
    return true;
}

std::string ComputeDigest(std::string_view text) {
    unsigned char bytes[EVP_MAX_MD_SIZE];
    unsigned count = 0;
    std::string digest;
    if (EVP_Digest(text.data(), text.size(), bytes, &count, EVP_sha256(), nullptr) == 1)
        AppendHex(digest, bytes, count);
    return digest;
}

}  // namespace host
