#!/usr/bin/env python3
"""Holds Android.bp's plug-in module to what CMake builds the plug-in from.

usage: android_bp_test.py ANDROID_BP PLUGIN_BUILD_TXT SOURCE_DIR

PLUGIN_BUILD_TXT is written by CMake at generate time: "src PATH" for every
source of the plug-in's components, "option OPT" for their compile options,
"std N" for the C++ standard. Every mismatch is printed by name; exit 1.
"""
import os
import re
import sys

MODULE = "libstagefright_zirk_extractor"


def module_block(text, name):
    """The body of the cc_library_shared block whose name is `name`."""
    text = re.sub(r"//[^\n]*", "", text)
    for match in re.finditer(r"\bcc_library_shared\s*\{", text):
        depth, start = 1, match.end()
        pos = start
        while depth and pos < len(text):
            depth += {"{": 1, "}": -1}.get(text[pos], 0)
            pos += 1
        body = text[start:pos - 1]
        if re.search(r'\bname\s*:\s*"%s"' % re.escape(name), body):
            return body
    return None


def strings(body, key):
    """The strings of a list property, or the one string of a string property."""
    match = re.search(r"\b%s\s*:\s*(\[.*?\]|\"[^\"]*\")" % key, body, re.S)
    return re.findall(r'"([^"]*)"', match.group(1)) if match else []


def main(bp_path, build_path, source_dir):
    body = module_block(open(bp_path).read(), MODULE)
    if body is None:
        print(f"{bp_path}: no cc_library_shared named {MODULE}")
        return 1
    built = {"src": [], "option": [], "std": []}
    for line in open(build_path).read().splitlines():
        kind, _, value = line.partition(" ")
        if kind in built and value:
            built[kind].append(value)
    cmake_srcs = {os.path.relpath(path, source_dir) for path in built["src"]}
    bp_srcs = strings(body, "srcs")
    cflags = strings(body, "cflags")
    problems = []
    problems += [f"missing from srcs: {path}" for path in sorted(cmake_srcs - set(bp_srcs))]
    problems += [f"in srcs, not built by CMake: {path}" for path in sorted(set(bp_srcs) - cmake_srcs)]
    problems += [f"listed twice in srcs: {path}" for path in sorted({p for p in bp_srcs if bp_srcs.count(p) > 1})]
    problems += [f"CMake's {opt} missing from cflags" for opt in built["option"]
                 if opt.startswith("-W") and opt not in cflags]
    problems += [f"cpp_std is {strings(body, 'cpp_std')}, CMake builds C++{std}" for std in built["std"]
                 if strings(body, "cpp_std") != [f"c++{std}"]]
    # Every path the module names exists.
    for key, exists in (("local_include_dirs", os.path.isdir), ("version_script", os.path.isfile)):
        problems += [f"{key} names {path}, which does not exist" for path in strings(body, key)
                     if not exists(os.path.join(source_dir, path))]
    for problem in problems:
        print(f"{bp_path}: {problem}")
    if not cmake_srcs:
        print(f"{build_path}: no sources")
        return 1
    print(f"{len(bp_srcs)} sources, {len(problems)} problems")
    return 1 if problems else 0


if __name__ == "__main__":
    if len(sys.argv) != 4:
        sys.exit(__doc__)
    sys.exit(main(*sys.argv[1:]))
