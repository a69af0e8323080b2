// Sends one alert to a management console.
#pragma once

#include <cstdint>
#include <string>

// Posts the body as SOAP to http or https://host:port/uri, and does not read the answer. No certificate is
// checked. Returns 0, or the error of the last call that failed, which is logged. Blocks until the request
// has been sent: 10 seconds each for the name, the connection, the answers of a TLS handshake, and the
// request. Any thread.
uint32_t HttpsWebRequestPost(const std::string& host, uint16_t port, const std::string& uri, bool secure,
                             const char* body);
