// HTTP authentication of consoles: Basic (RFC 7617) and Digest with MD5 or SHA-256 (RFC 7616), for the users
// of the settings.
#pragma once

#include <chrono>
#include <deque>
#include <optional>
#include <string>
#include <vector>

#include "firmware/Settings.h"
#include "firmware/dash/HttpConnection.h"

namespace mpm {

class Authentication {
  public:
    using Clock = std::chrono::steady_clock;

    static constexpr const char* kRealm = "mpmsim";
    // After this time a client has to use a new nonce, which it can do without asking its user again.
    static constexpr std::chrono::minutes kNonceLife{5};
    // The oldest nonce is dropped when there are more.
    static constexpr size_t kMaxNonces = 256;

    // The answer to a request that may not be carried out: 401 with the challenges, or 400 for credentials
    // that belong to another request. Nothing when the request comes from one of the users, or when there are
    // none.
    std::optional<HttpResponse> Refuse(const HttpRequest& request, const Settings& settings,
                                       Clock::time_point now = Clock::now());

  private:
    enum class Verdict { Allowed, Wrong, Stale, Misdirected };
    struct Nonce {
        std::string text;
        Clock::time_point made;
        uint32_t lastCount = 0;  // of the requests that used it
    };

    Verdict CheckDigest(const std::string& parameters, const HttpRequest& request, const Settings& settings,
                        Clock::time_point now);
    // Whether the nonce is valid and has not been used with this count, which it then has.
    bool Use(const std::string& nonce, const std::string& count, Clock::time_point now);
    HttpResponse Answer401(const Settings& settings, bool stale, Clock::time_point now);

    std::deque<Nonce> m_nonces;  // oldest first
};

}  // namespace mpm
