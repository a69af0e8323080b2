#include "firmware/dash/Authentication.h"

#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/rand.h>
#include <strings.h>

#include <algorithm>
#include <charconv>
#include <map>
#include <stdexcept>

#include "firmware/dash/Credentials.h"

namespace mpm {

namespace {

std::string Hex(const unsigned char* bytes, size_t size) {
    static constexpr char kDigits[] = "0123456789abcdef";
    std::string text;
    for (size_t i = 0; i < size; ++i)
        (text += kDigits[bytes[i] >> 4]) += kDigits[bytes[i] & 15];
    return text;
}

std::string Hash(const EVP_MD* algorithm, const std::string& text) {
    unsigned char digest[EVP_MAX_MD_SIZE];
    unsigned size = 0;
    if (EVP_Digest(text.data(), text.size(), digest, &size, algorithm, nullptr) != 1)
        throw std::runtime_error("no digest");
    return Hex(digest, size);
}

std::string NewNonce() {
    unsigned char bytes[16];
    if (RAND_bytes(bytes, sizeof bytes) != 1) throw std::runtime_error("no random bytes");
    return Hex(bytes, sizeof bytes);
}

// Takes the same time wherever two texts of one length differ.
bool Same(const std::string& a, const std::string& b) {
    return a.size() == b.size() && CRYPTO_memcmp(a.data(), b.data(), a.size()) == 0;
}

struct Password {
    explicit Password(const Settings& settings, const std::string& user) {
        const auto found = settings.Users.find(user);
        known = found != settings.Users.end();
        text = known ? found->second : "";
    }
    bool known;
    std::string text;  // of an unknown user empty, so that the check takes about the same time
};

bool CheckBasic(const std::string& encoded, const Settings& settings) {
    const std::optional<std::string> plain = FromBase64(encoded);
    const size_t colon = plain ? plain->find(':') : std::string::npos;
    if (colon == std::string::npos) return false;
    const Password password(settings, plain->substr(0, colon));
    const auto digest = [](const std::string& text) { return Hash(EVP_sha256(), text); };
    return Same(digest(plain->substr(colon + 1)), digest(password.text)) && password.known;
}

const EVP_MD* AlgorithmOf(const std::string& name, const Settings& settings) {
    const auto is = [&](const char* wanted, Challenge offered) {
        return strcasecmp(name.c_str(), wanted) == 0 &&
               std::count(settings.Challenges.begin(), settings.Challenges.end(), offered);
    };
    if (is("", Challenge::Md5) || is("MD5", Challenge::Md5)) return EVP_md5();
    return is("SHA-256", Challenge::Sha256) ? EVP_sha256() : nullptr;
}

}  // namespace

std::optional<HttpResponse> Authentication::Refuse(const HttpRequest& request, const Settings& settings,
                                                   Clock::time_point now) {
    if (settings.Users.empty()) return std::nullopt;
    const auto [scheme, rest] = SplitCredentials(request.authorization);
    Verdict verdict = Verdict::Wrong;
    if (strcasecmp(scheme.c_str(), "Digest") == 0) verdict = CheckDigest(rest, request, settings, now);
    const bool mayBasic =
        std::count(settings.Challenges.begin(), settings.Challenges.end(), Challenge::Basic) != 0;
    if (mayBasic && strcasecmp(scheme.c_str(), "Basic") == 0 && CheckBasic(rest, settings))
        verdict = Verdict::Allowed;
    if (verdict == Verdict::Allowed) return std::nullopt;
    if (verdict == Verdict::Misdirected) return HttpResponse{400, {}, {}, {}};
    return Answer401(settings, verdict == Verdict::Stale, now);
}

Authentication::Verdict Authentication::CheckDigest(const std::string& parameters, const HttpRequest& request,
                                                    const Settings& settings, Clock::time_point now) {
    auto given = ParametersOf(parameters);
    if (!given) return Verdict::Wrong;
    const auto value = [&](const char* name) { return (*given)[name]; };
    const EVP_MD* algorithm = AlgorithmOf(value("algorithm"), settings);
    if (!algorithm || value("realm") != kRealm || value("qop") != "auth" || value("cnonce").empty())
        return Verdict::Wrong;
    const Password password(settings, value("username"));
    const std::string user = Hash(algorithm, value("username") + ":" + kRealm + ":" + password.text);
    const std::string target = Hash(algorithm, request.method + ":" + value("uri"));
    const std::string wanted = Hash(algorithm, user + ":" + value("nonce") + ":" + value("nc") + ":" +
                                                   value("cnonce") + ":auth:" + target);
    std::string response = value("response");
    std::transform(response.begin(), response.end(), response.begin(),
                   [](char c) { return c >= 'A' && c <= 'F' ? char(c + 32) : c; });
    if (!Same(response, wanted) || !password.known) return Verdict::Wrong;
    if (value("uri") != request.target) return Verdict::Misdirected;
    return Use(value("nonce"), value("nc"), now) ? Verdict::Allowed : Verdict::Stale;
}

bool Authentication::Use(const std::string& nonce, const std::string& count, Clock::time_point now) {
    const auto found =
        std::find_if(m_nonces.begin(), m_nonces.end(), [&](const Nonce& each) { return each.text == nonce; });
    if (found == m_nonces.end() || now - found->made > kNonceLife) return false;
    uint32_t number = 0;
    const auto [stop, error] = std::from_chars(count.data(), count.data() + count.size(), number, 16);
    if (error != std::errc() || stop != count.data() + count.size() || count.size() != 8) return false;
    if (number <= found->lastCount) return false;
    found->lastCount = number;
    return true;
}

HttpResponse Authentication::Answer401(const Settings& settings, bool stale, Clock::time_point now) {
    m_nonces.push_back({NewNonce(), now});
    if (m_nonces.size() > kMaxNonces) m_nonces.pop_front();
    HttpResponse response{401, {}, {}, {}};
    for (const Challenge each : settings.Challenges) {
        const std::string realm = std::string("realm=\"") + kRealm + "\"";
        response.extraHeaders += "WWW-Authenticate: ";
        if (each == Challenge::Basic) {
            response.extraHeaders += "Basic " + realm + ", charset=\"UTF-8\"\r\n";
            continue;
        }
        response.extraHeaders += "Digest " + realm +
                                 ", qop=\"auth\", algorithm=" + (each == Challenge::Md5 ? "MD5" : "SHA-256") +
                                 ", nonce=\"" + m_nonces.back().text + "\", charset=UTF-8" +
                                 (stale ? ", stale=true" : "") + "\r\n";
    }
    return response;
}

}  // namespace mpm
