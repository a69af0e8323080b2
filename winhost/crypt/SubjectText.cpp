#include "winhost/crypt/SubjectText.h"

#include <algorithm>
#include <cstring>

namespace winhost {

namespace {

std::string ValueOf(X509_NAME* name, int at) {
    unsigned char* text = nullptr;
    const int size = ASN1_STRING_to_UTF8(&text, X509_NAME_ENTRY_get_data(X509_NAME_get_entry(name, at)));
    std::string value(reinterpret_cast<const char*>(text), static_cast<size_t>(std::max(size, 0)));
    OPENSSL_free(text);
    return value;
}

// A value with characters that mean something between values is quoted, and its quotes are doubled.
std::string Quoted(const std::string& value) {
    const bool plain = !value.empty() && value.front() != ' ' && value.back() != ' ' &&
                       value.find_first_of(",+=\"\n<>#;") == std::string::npos;
    if (plain) return value;
    std::string quoted = "\"";
    for (const char c : value)
        quoted += c == '"' ? "\"\"" : std::string(1, c);
    return quoted + '"';
}

// The values alone, in the order of the certificate. Those of one part are joined by a plus.
std::string SubjectTextOf(X509* certificate) {
    X509_NAME* const subject = X509_get_subject_name(certificate);
    std::string text;
    for (int at = 0; at < X509_NAME_entry_count(subject); ++at) {
        const auto part = [&](int entry) { return X509_NAME_ENTRY_set(X509_NAME_get_entry(subject, entry)); };
        if (at > 0) text += part(at) == part(at - 1) ? " + " : ", ";
        text += Quoted(ValueOf(subject, at));
    }
    return text;
}

}  // namespace

bool SubjectContains(const Encoded& certificate, const std::string& text) {
    const X509Owner x509 = Parse(certificate.data(), certificate.size());
    if (!x509) return false;
    const std::string subject = SubjectTextOf(x509.get());
    return strcasestr(subject.c_str(), text.c_str()) != nullptr;
}

std::string DisplayNameOf(X509* certificate) {
    if (!certificate) return {};
    X509_NAME* const subject = X509_get_subject_name(certificate);
    for (const int nid :
         {NID_commonName, NID_organizationalUnitName, NID_organizationName, NID_pkcs9_emailAddress})
        if (const int at = X509_NAME_get_index_by_NID(subject, nid, -1); at >= 0) return ValueOf(subject, at);
    return {};
}

}  // namespace winhost
