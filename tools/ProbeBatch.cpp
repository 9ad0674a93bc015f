#include "tools/ProbeBatch.h"

#include <stdio.h>

namespace zirk_probe {

int runBatch(const BatchRequest&) {
    fprintf(stderr, "zirk-probe: several files are not supported yet\n");
    return 1;
}

}  // namespace zirk_probe
