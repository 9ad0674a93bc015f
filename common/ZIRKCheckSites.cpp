#include "common/ZIRKCheckSites.h"

namespace android {

void zirkFailCheckSite(const ZIRKCheckComponent& component, const ZIRKCheckSite& site,
                       const AString& values) {
    AString rest(site.isEquality ? " CHECK_EQ( " : " CHECK(");
    rest.append(site.text);
    rest.append(site.isEquality ? ") failed: " : ") failed.");
    rest.append(values);
    zirkCheckFailed(component.tag, component.source, site.line, site.text, rest);
}

}  // namespace android
