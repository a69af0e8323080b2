// A small certificate authority: a key and a self-signed certificate, both made on first use. OpenSSL keeps
// them in a folder (native/), Windows in a key container and in the machine's stores (windows/).
#pragma once

#include <filesystem>
#include <memory>
#include <string>

namespace certreq {

// The only name under which it accepts requests.
inline constexpr char kAuthorityName[] = "Example Enterprise CA";

class Authority {
  public:
    // Loads the authority of this folder, or makes it. Several processes may do so at once, and get the same.
    // ca.pem has the certificate then. Windows has one authority, which needs no folder: its certificate is
    // in the machine's stores MY and ROOT then. Throws std::runtime_error.
    explicit Authority(const std::filesystem::path& folder);
    ~Authority();
    Authority(const Authority&) = delete;
    Authority& operator=(const Authority&) = delete;

    // Returns the certificate for a PEM request as PEM. Throws std::runtime_error for a text that is no
    // request, and, with OpenSSL, for one that its own key has not signed.
    std::string Issue(const std::string& request) const;

  private:
    struct Keys;
    std::unique_ptr<Keys> m_keys;
};

}  // namespace certreq
