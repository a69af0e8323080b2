// One scan of the network as the service makes it, its log lines included, on PCs with more and more
// interfaces.
//
//   scan FOLDER COUNT...      prints the median of a scan in microseconds for each count of interfaces
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

#include "bench/Scan.h"
#include "bench/ServiceLog.h"

namespace {

constexpr int kScans = 101;

double MedianMicroseconds() {
    std::vector<double> times;
    for (int i = 0; i < kScans; ++i) {
        const auto start = std::chrono::steady_clock::now();
        ScanOnce();
        times.push_back(
            std::chrono::duration<double, std::micro>(std::chrono::steady_clock::now() - start).count());
    }
    std::sort(times.begin(), times.end());
    return times[times.size() / 2];
}

}  // namespace

int main(int argc, char** argv) {
    if (argc < 3) {
        fprintf(stderr, "scan: FOLDER COUNT...\n");
        return 2;
    }
    if (!OpenServiceLog(argv[1])) {
        fprintf(stderr, "scan: cannot open the service's log in %s\n", argv[1]);
        return 1;
    }
    for (int i = 2; i < argc; ++i) {
        DescribeInterfaces(atoi(argv[i]));
        ScanOnce();
        printf("%.1f ", MedianMicroseconds());
    }
    printf("\n");
    return 0;
}
