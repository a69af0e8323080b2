// A piece of a test that runs in a network of its own.
#pragma once

#include <functional>
#include <string>

// Why it can't be had here; empty when it can.
std::string WhyNoOwnNetwork();

// To be called in a death test's process: enters a network namespace with nothing in it but a loopback that
// is down, runs the body, and ends the process with 0 when none of its expectations failed.
[[noreturn]] void RunInOwnNetwork(const std::function<void()>& body);

// One command of the machine's network tool: "link set dev veth0 up". Fails the test when it does.
void Ip(const std::string& words);
