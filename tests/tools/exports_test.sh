#!/usr/bin/env bash
# The plug-in exports exactly its entry points, the RealMedia bridge, the
# version strings and the caching file source; nothing else leaks out.
# Usage: exports_test.sh LIBRARY
set -euo pipefail
lib=$1
unexpected=$(nm -D --defined-only "$lib" | awk '{print $3}' | c++filt | grep -v -E \
  '^(getInstance|sniffZIRKExtractor|getZIRKRealMediaLibHandle|gZIRKRealMediaExtractorLibHandle|getAsfParserVer|getZirk(Avi|Mov|Flv)ExtractorVersion)$|^android::ZIRKCachedFileSource::|^(typeinfo|typeinfo name|vtable) for android::ZIRKCachedFileSource$' || true)
missing=0
for sym in getInstance sniffZIRKExtractor; do
  nm -D --defined-only "$lib" | awk '{print $3}' | grep -qx "$sym" || { echo "missing export: $sym"; missing=1; }
done
if [[ -n $unexpected ]]; then
  echo "unexpected exports:"; echo "$unexpected" | sed 's/^/  /'
  echo "0 passed, 1 failed"; exit 1
fi
[[ $missing -eq 0 ]] || { echo "0 passed, 1 failed"; exit 1; }
echo "1 passed, 0 failed"
