#include "firmware/dash/Credentials.h"

#include <openssl/evp.h>

#include <algorithm>
#include <string_view>
#include <vector>

namespace mpm {

namespace {

constexpr const char* kSpace = " \t";

// Reads from the front of a text.
class Reader {
  public:
    explicit Reader(std::string_view text) : m_rest(text) {}

    bool AtEnd() const { return m_rest.empty(); }
    void SkipSpace() { m_rest.remove_prefix(std::min(m_rest.find_first_not_of(kSpace), m_rest.size())); }
    bool Take(char c) {
        SkipSpace();
        if (m_rest.empty() || m_rest.front() != c) return false;
        m_rest.remove_prefix(1);
        SkipSpace();
        return true;
    }
    std::string Token() {
        const size_t size = std::min(m_rest.find_first_of(" \t,=\""), m_rest.size());
        const std::string token(m_rest.substr(0, size));
        m_rest.remove_prefix(size);
        return token;
    }
    // What stands between the quotes, of which the first has been taken.
    std::optional<std::string> Quoted() {
        std::string text;
        for (size_t i = 0; i < m_rest.size(); ++i) {
            if (m_rest[i] == '"') {
                m_rest.remove_prefix(i + 1);
                return text;
            }
            if (m_rest[i] == '\\' && ++i == m_rest.size()) break;
            text += m_rest[i];
        }
        return std::nullopt;
    }

  private:
    std::string_view m_rest;
};

}  // namespace

std::pair<std::string, std::string> SplitCredentials(const std::string& header) {
    const size_t begin = std::min(header.find_first_not_of(kSpace), header.size());
    const size_t space = std::min(header.find_first_of(kSpace, begin), header.size());
    const size_t rest = std::min(header.find_first_not_of(kSpace, space), header.size());
    const size_t end = header.find_last_not_of(kSpace);
    return {header.substr(begin, space - begin),
            rest < header.size() ? header.substr(rest, end + 1 - rest) : ""};
}

std::optional<std::map<std::string, std::string>> ParametersOf(const std::string& text) {
    std::map<std::string, std::string> parameters;
    Reader reader(text);
    do {
        reader.SkipSpace();
        std::string name = reader.Token();
        std::transform(name.begin(), name.end(), name.begin(),
                       [](char c) { return c >= 'A' && c <= 'Z' ? char(c + 32) : c; });
        if (name.empty() || !reader.Take('=')) return std::nullopt;
        const std::optional<std::string> value = reader.Take('"') ? reader.Quoted() : reader.Token();
        if (!value || !parameters.emplace(name, *value).second) return std::nullopt;
    } while (reader.Take(','));
    reader.SkipSpace();
    if (!reader.AtEnd()) return std::nullopt;
    return parameters;
}

std::optional<std::string> FromBase64(const std::string& text) {
    const size_t padding = text.size() - std::min(text.find('='), text.size());
    const bool clean = text.find_first_not_of(
                           "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/=") == text.npos;
    if (!clean || text.size() % 4 != 0 || padding > 2 || !text.ends_with(std::string(padding, '=')))
        return std::nullopt;
    std::vector<unsigned char> bytes(text.size() / 4 * 3 + 1);
    const int size =
        EVP_DecodeBlock(bytes.data(), reinterpret_cast<const unsigned char*>(text.data()), int(text.size()));
    if (size < int(padding)) return std::nullopt;
    return std::string(bytes.begin(), bytes.begin() + (size - int(padding)));
}

}  // namespace mpm
