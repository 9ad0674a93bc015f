// Many files: zirk-probe PATH... probes every file (directories walked) in
// child processes, --jobs at a time, and reports them in the order found,
// closing with a summary table (text) or as JSON Lines (--json).
//
// runBatch runs on the tool's main thread, starts no threads, and owns every
// child it starts: each is waited for before runBatch returns. It writes the
// results on stdout and, when stderr is a terminal, a progress line there.
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

// Runs the batch; returns the process exit code: 0 when every file was probed
// without failure, 7 when some file failed (it could not be read, was not
// recognised, a track ended badly, or its child died on a fatal check).
int runBatch(const BatchRequest& request);

}  // namespace zirk_probe

#endif  // ZIRK_TOOLS_PROBE_BATCH_H
