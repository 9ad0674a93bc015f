#include "tools/ProbeExtract.h"

namespace zirk_probe {

std::unique_ptr<ProbeSampleSink> openExtractSink(const android::sp<android::MetaData>&, const std::string&,
                                                 std::string* error) {
    *error = "--extract is not built yet";
    return nullptr;
}

}  // namespace zirk_probe
