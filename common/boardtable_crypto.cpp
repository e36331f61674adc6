#include "boardtable_crypto.h"

#include <openssl/evp.h>

#include <algorithm>
#include <memory>
#include <stdexcept>

namespace vt::boardtable {
namespace {

// Fixed secret from which the file key is derived.  The file is enciphered
// to keep the board list from being edited by hand, not to keep it from a
// determined reader of this library.
constexpr std::string_view kSecret = "vtfcstack/board-table/1:7c1e94d2a35b60f8e9d4";
constexpr std::string_view kNonceLabel = "vtfcstack/board-table/nonce";

using CipherCtx = std::unique_ptr<EVP_CIPHER_CTX, decltype(&EVP_CIPHER_CTX_free)>;

CipherCtx NewCtx() {
    CipherCtx ctx(EVP_CIPHER_CTX_new(), &EVP_CIPHER_CTX_free);
    if (!ctx) throw std::runtime_error("EVP_CIPHER_CTX_new failed");
    return ctx;
}

std::array<uint8_t, 32> Sha256(std::string_view data) {
    std::array<uint8_t, 32> out{};
    unsigned int len = 0;
    if (EVP_Digest(data.data(), data.size(), out.data(), &len, EVP_sha256(), nullptr) != 1 || len != out.size())
        throw std::runtime_error("SHA-256 failed");
    return out;
}

std::array<uint8_t, kHeaderSize> Header() {
    return {kMagic[0],
            kMagic[1],
            kMagic[2],
            kMagic[3],
            static_cast<uint8_t>(kVersion >> 8),
            static_cast<uint8_t>(kVersion & 0xFF),
            0,
            0};
}

void Check(int rc, const char *what) {
    if (rc != 1) throw std::runtime_error(std::string(what) + " failed");
}

void AppendEscaped(std::string &out, std::string_view text) {
    for (char c : text) {
        if (c == '\n') {
            out += "\\n";
            continue;
        }
        if (c == '\\' || c == ';' || c == '=') out += '\\';
        out += c;
    }
}

}  // namespace

std::array<uint8_t, 32> DeriveKey() { return Sha256(kSecret); }

std::vector<uint8_t> Seal(std::string_view body) {
    const auto key = DeriveKey();
    const auto header = Header();
    std::string nonceInput(kNonceLabel);
    nonceInput.append(reinterpret_cast<const char *>(key.data()), key.size());
    nonceInput.append(body);
    const auto digest = Sha256(nonceInput);

    // Header, nonce, ciphertext, tag.
    const size_t cipherAt = header.size() + kNonceSize;
    std::vector<uint8_t> out(cipherAt + body.size() + kTagSize, 0);
    std::copy(header.begin(), header.end(), out.begin());
    std::copy_n(digest.begin(), kNonceSize, out.begin() + std::ptrdiff_t(header.size()));

    CipherCtx ctx = NewCtx();
    int len = 0;
    Check(EVP_EncryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr), "init");
    Check(EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kNonceSize, nullptr), "ivlen");
    Check(EVP_EncryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), digest.data()), "key");
    Check(EVP_EncryptUpdate(ctx.get(), nullptr, &len, header.data(), header.size()), "aad");
    Check(EVP_EncryptUpdate(ctx.get(), out.data() + cipherAt, &len, reinterpret_cast<const uint8_t *>(body.data()),
                            static_cast<int>(body.size())),
          "encrypt");
    int tail = 0;
    Check(EVP_EncryptFinal_ex(ctx.get(), out.data() + cipherAt + len, &tail), "final");
    Check(EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_GET_TAG, kTagSize, out.data() + cipherAt + body.size()), "tag");
    return out;
}

const char *Describe(OpenStatus status) {
    switch (status) {
    case OpenStatus::kOk: return "valid";
    case OpenStatus::kTruncated: return "truncated";
    case OpenStatus::kForeign: return "not a board table of a known format";
    case OpenStatus::kDamaged: return "damaged (authentication failed)";
    }
    return "invalid";
}

OpenStatus Open(std::span<const uint8_t> image, std::string &body) {
    const auto header = Header();
    const size_t magicBytes = std::min(image.size(), kMagic.size());
    if (!std::equal(image.begin(), image.begin() + magicBytes, kMagic.begin())) return OpenStatus::kForeign;
    if (image.size() < kHeaderSize) return OpenStatus::kTruncated;
    if (!std::equal(header.begin(), header.end(), image.begin())) return OpenStatus::kForeign;
    if (image.size() < kOverhead) return OpenStatus::kTruncated;

    const uint8_t *nonce = image.data() + kHeaderSize;
    const uint8_t *cipher = nonce + kNonceSize;
    const size_t cipherLen = image.size() - kOverhead;
    std::array<uint8_t, kTagSize> tag{};
    std::copy_n(cipher + cipherLen, kTagSize, tag.begin());
    const auto key = DeriveKey();

    std::string plain(cipherLen, '\0');
    CipherCtx ctx = NewCtx();
    int len = 0, tail = 0;
    auto *plainBytes = reinterpret_cast<uint8_t *>(plain.data());
    bool ok = EVP_DecryptInit_ex(ctx.get(), EVP_aes_256_gcm(), nullptr, nullptr, nullptr) == 1 &&
              EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_IVLEN, kNonceSize, nullptr) == 1 &&
              EVP_DecryptInit_ex(ctx.get(), nullptr, nullptr, key.data(), nonce) == 1 &&
              EVP_DecryptUpdate(ctx.get(), nullptr, &len, header.data(), header.size()) == 1 &&
              EVP_DecryptUpdate(ctx.get(), plainBytes, &len, cipher, static_cast<int>(cipherLen)) == 1 &&
              EVP_CIPHER_CTX_ctrl(ctx.get(), EVP_CTRL_GCM_SET_TAG, kTagSize, tag.data()) == 1 &&
              EVP_DecryptFinal_ex(ctx.get(), plainBytes + len, &tail) == 1;
    if (!ok) return OpenStatus::kDamaged;
    body = std::move(plain);
    return OpenStatus::kOk;
}

std::string FormatRecord(const Record &record) {
    std::string line;
    for (const auto &[key, value] : record) {
        if (!line.empty()) line += ';';
        AppendEscaped(line, key);
        line += '=';
        AppendEscaped(line, value);
    }
    return line;
}

std::optional<std::map<std::string, std::string>> ParseRecord(std::string_view line) {
    std::map<std::string, std::string> fields;
    std::string key, value;
    bool inValue = false;
    auto finish = [&]() {
        if (!inValue) return key.empty();  // an empty segment is allowed
        fields[key] = value;
        key.clear();
        value.clear();
        inValue = false;
        return true;
    };
    for (size_t i = 0; i < line.size(); ++i) {
        char c = line[i];
        std::string &cur = inValue ? value : key;
        if (c == '\\') {
            if (++i == line.size()) return std::nullopt;
            cur += line[i] == 'n' ? '\n' : line[i];
        } else if (c == ';') {
            if (!finish()) return std::nullopt;
        } else if (c == '=' && !inValue) {
            inValue = true;
        } else if (c == '=') {
            return std::nullopt;
        } else {
            cur += c;
        }
    }
    if (!finish()) return std::nullopt;
    return fields;
}

}  // namespace vt::boardtable
