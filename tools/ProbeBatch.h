// Many files: zirk-probe PATH... probes every file (directories walked) in
// child processes, --jobs at a time, and closes with a summary table.
#ifndef ZIRK_TOOLS_PROBE_BATCH_H
#define ZIRK_TOOLS_PROBE_BATCH_H

#include <string>
#include <vector>

namespace zirk_probe {

struct BatchRequest {
    std::string self;                    // this program, run once per file
    std::vector<std::string> paths;      // files and directories as given
    std::vector<std::string> extensions; // --ext, lower case without the dot; empty: every file
    unsigned jobs = 1;                   // children at once, 1 or more
    bool json = false;                   // JSON Lines instead of text summaries
    std::vector<std::string> childArgs;  // the options each child gets before its file
};

// Runs the batch; returns the process exit code (0 when every file was probed
// without failure).
int runBatch(const BatchRequest& request);

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_BATCH_H
