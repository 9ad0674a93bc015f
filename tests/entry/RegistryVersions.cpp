// Lists the version function of each registered container for the export
// check (tests/tools/exports_test.sh), one per line: the symbol, then "built"
// when the plug-in's factory builds the container's demultiplexer (so the
// symbol must be exported) or "pending" when it does not (so it may be absent).
#include <stdio.h>

#include "TestDataSources.h"
#include "entry/ZIRKContainerRegistry.h"
#include "entry/ZIRKExtractorEntry.h"

using namespace android;

int main() {
    // A built demultiplexer makes an extractor for any bytes; it reports
    // unreadable ones through its track count, not here.
    sp<DataSource> bytes = new test::MemorySource(std::vector<uint8_t>(16, 0));
    for (const ZIRKContainerInfo& c : kZIRKContainers) {
        if (c.versionSymbol == nullptr) continue;
        sp<MediaExtractor> extractor = getInstance(bytes, c.mimeType());
        printf("%s %s\n", c.versionSymbol, extractor != nullptr ? "built" : "pending");
    }
    return 0;
}
