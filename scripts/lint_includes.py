#!/usr/bin/env python3
"""Holds the walls of the tree: which folder may include what.

Arrows run downward only. A folder may include the project's folders listed for it (and itself),
and no outside library but those that OUTSIDE gives it; the standard library is free to all.
"""

import pathlib
import re
import subprocess
import sys

ROOT = pathlib.Path(__file__).resolve().parent.parent
PLATFORM = ["library/platform/", "library/framework/kavi_action.h"]

# Folder -> what it may include of the project, besides itself. The longest match counts.
INSIDE = {
    "library/platform": [],
    "library": ["library/"],
    "host/core": PLATFORM,
    "host/message": PLATFORM + ["host/core/"],
    "host/store": PLATFORM + ["host/core/"],
    "host/trap": PLATFORM + ["host/core/"],
    "host/delivery": PLATFORM + ["host/core/", "host/message/", "host/store/", "host/trap/"],
    "gateway/scan": ["library/", "host/"],
    "gateway/policy": ["library/", "host/", "gateway/scan/"],
    "gateway/engine": ["library/", "host/", "gateway/scan/", "gateway/policy/"],
    "gateway/cli": ["library/", "host/", "gateway/"],
    "gateway/milter": ["library/", "host/", "gateway/scan/", "gateway/policy/", "gateway/engine/"],
    "tests": ["library/", "host/", "gateway/", "tests/"],
    "fuzz": ["library/", "host/", "gateway/", "tests/"],
    "bench": ["library/", "host/", "gateway/", "tests/"],
}

# Outside library -> (pattern of its headers, the only folders that may include them).
OUTSIDE = {
    "GMime and GLib": (r"^(gmime/|glib|gio/)", ["host/message", "bench", "tests"]),
    "Gumbo": (r"^gumbo\.h$", ["host/message"]),
    "ICU": (r"^unicode/", ["library", "host/core", "host/message", "gateway/policy", "tests"]),
    "spdlog and fmt": (r"^(spdlog|fmt)/", ["host/core"]),
    "SimpleIni": (r"^SimpleIni\.h$", ["host/core"]),
    "PostgreSQL": (r"^(pqxx/|libpq-fe\.h$)", ["host/store", "tests"]),
    "SQLite": (r"^(sqlite3\.h$|SQLiteCpp/)", ["host/store", "tests"]),
    "Net-SNMP": (r"^net-snmp/", ["host/trap"]),
    "libcurl": (r"^curl/", ["host/delivery"]),
    "OpenSSL": (r"^openssl/", ["host/delivery"]),
    "libmilter": (r"^libmilter/", ["gateway/milter", "bench"]),
    "yaml-cpp": (r"^yaml-cpp/", ["gateway/policy"]),
    "RE2": (r"^re2/", ["gateway/policy", "bench"]),
    "prometheus-cpp": (r"^prometheus/", ["gateway/milter"]),
    "libsystemd": (r"^systemd/", ["gateway/milter"]),
    "CLI11": (r"^CLI/", ["gateway/cli", "gateway/milter"]),
    "DTL": (r"^dtl/", ["gateway/cli"]),
    "nlohmann-json": (r"^nlohmann/", ["host/core", "host/delivery", "gateway", "tests"]),
    "GoogleTest": (r"^(gtest|gmock)/", ["tests"]),
    "libFuzzer": (r"^fuzzer/", ["fuzz"]),
    "Google Benchmark": (r"^benchmark/", ["bench"]),
}

# Headers of the C and C++ libraries and the kernel: bare names, and these folders.
SYSTEM = re.compile(r"^([a-z0-9_]+(\.h)?|(sys|linux|netinet|arpa|net)/[a-z0-9_]+\.h)$")
LIBRARY_SYSTEM_BAN = re.compile(r"^(unistd|fcntl|dlfcn|pthread|sys/.*|linux/.*|netinet/.*)(\.h)?$")
# Single headers that one file may include all the same, and why.
EXCEPTIONS = {
    ("library/notification/mail_identity.cpp", "unistd.h"),  # gethostname
}
INCLUDE = re.compile(r'^\s*#\s*include\s*([<"])([^>"]+)[>"]')


def owner(path, table):
    """The longest folder of `table` that holds `path`, or None."""
    folders = [folder for folder in table if path == folder or path.startswith(folder + "/")]
    return max(folders, key=len, default=None)


def complaint(path, header):
    """What is wrong with `path` including `header`, or None."""
    if (path, header) in EXCEPTIONS:
        return None
    folder = owner(path, INSIDE)
    if folder is None:
        return "lies in no folder that the walls know; add it to scripts/lint_includes.py"
    if header.split("/")[0] in ("library", "host", "gateway", "tests", "fuzz", "bench"):
        allowed = INSIDE[folder] + [folder + "/"]
        if any(header.startswith(prefix) for prefix in allowed):
            return None
        return f"{folder}/ may not include {header}"
    for name, (pattern, folders) in OUTSIDE.items():
        if re.search(pattern, header):
            if owner(path, dict.fromkeys(folders)) is None:
                return f"only {', '.join(folders)} may include {name}"
            return None
    if not SYSTEM.match(header):
        return f"includes {header}, which no entry of scripts/lint_includes.py allows"
    if folder.startswith("library") and LIBRARY_SYSTEM_BAN.match(header):
        return f"library/ talks to the world through library/platform/ only, not through {header}"
    return None


def main():
    files = subprocess.run(
        ["git", "ls-files", "*.h", "*.cpp", "*.c"], cwd=ROOT, check=True, capture_output=True,
        text=True).stdout.split()
    faults = 0
    for name in files:
        lines = (ROOT / name).read_text(encoding="utf-8").splitlines()
        for number, line in enumerate(lines, 1):
            include = INCLUDE.match(line)
            problem = complaint(name, include.group(2)) if include else None
            if problem:
                print(f"{name}:{number}: {problem}")
                faults += 1
    print(f"include walls: {len(files)} files, {faults} faults")
    return 1 if faults else 0


if __name__ == "__main__":
    sys.exit(main())
