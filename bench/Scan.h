// One scan of a described PC's network, so that a benchmark's main needs none of the platform's headers.
#pragma once

// A PC with so many Ethernet interfaces, each with an address of its own.
void DescribeInterfaces(int count);
// One scan into a record that is dropped.
void ScanOnce();
