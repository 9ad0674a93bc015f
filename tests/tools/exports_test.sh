#!/usr/bin/env bash
# The plug-in exports exactly its entry points, the RealMedia bridge, the
# version function of each registered container and the caching file source;
# nothing else leaks out, and no built container's version function is missing.
# Usage: exports_test.sh LIBRARY REGISTRY_VERSIONS (tests/entry/RegistryVersions.cpp)
set -euo pipefail
lib=$1
registry=$("$2")
exported=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt)
fixed='getInstance|sniffZIRKExtractor|getZIRKRealMediaLibHandle|gZIRKRealMediaExtractorLibHandle'
versions=$(awk '{print $1}' <<<"$registry" | paste -sd'|')
cached='^android::ZIRKCachedFileSource::|^(typeinfo|typeinfo name|vtable) for android::ZIRKCachedFileSource$'
unexpected=$(grep -v -E "^($fixed|$versions)\$|$cached" <<<"$exported" || true)
missing=
for sym in getInstance sniffZIRKExtractor $(awk '$2 == "built" {print $1}' <<<"$registry"); do
  grep -qx "$sym" <<<"$exported" || missing+=" $sym"
done
[[ -z $unexpected ]] || { echo "unexpected exports:"; sed 's/^/  /' <<<"$unexpected"; }
[[ -z $missing ]] || echo "missing exports:$missing"
if [[ -n $unexpected || -n $missing ]]; then echo "0 passed, 1 failed"; exit 1; fi
echo "1 passed, 0 failed"
