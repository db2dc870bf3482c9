#!/usr/bin/env python3
"""What a HAL's loader sees of the built module, read from the file by readelf, for any target.

  check_library.py READELF MODULE REPRODUCIBLE PLATFORM_MATH MACHINE PAGE [--sanitized]

MODULE exports exactly the names of exports_*.txt beside this script, none mangled, leaves
__android_log_print to the platform and needs nothing beyond libc, libm and liblog. It is
built for MACHINE (readelf's name) with LOAD segments aligned to PAGE at least: arm64
devices with 16 KiB pages load nothing else. The flavour with the reproducible math imports
none of the math functions a C library may round its own way, and exports the same names
as the flavour that takes them from the platform (powf, atan2f, asinf and atanf at least).
"""
import glob, os, re, subprocess, sys

readelf, module, reproducible, platform_math, machine, page = sys.argv[1:7]
sanitized = "--sanitized" in sys.argv  # the sanitizer runtime adds hooks and NEEDED entries
failures = []


def check(ok, what):
    if not ok:
        failures.append(what)


def readelf_lines(flags, path):
    return subprocess.run([readelf, "-W", *flags, path], capture_output=True, text=True, check=True).stdout.splitlines()


def symbols(path):
    """Dynamic symbols as (name, defined, global or weak)."""
    out = []
    for line in readelf_lines(["--dyn-syms"], path):
        f = line.split()
        if len(f) >= 8 and f[0].rstrip(":").isdigit():
            out.append((f[7].split("@")[0], f[6] != "UND", f[4] in ("GLOBAL", "WEAK")))
    return out


def exported(path):
    sanitizer = ("asan", "odr_asan", "ubsan", "sanitizer")
    return {n for n, defined, bound in symbols(path)
            if defined and bound and not (sanitized and n.lstrip("_").startswith(sanitizer))}


expected = set()
for lists in glob.glob(os.path.join(os.path.dirname(os.path.abspath(__file__)), "exports_*.txt")):
    expected |= {l.strip() for l in open(lists) if l.strip() and not l.startswith("#")}
names = exported(module)
check(expected and names == expected, f"missing {sorted(expected - names)}, extra {sorted(names - expected)}")
check(not [n for n in names if n.startswith("_Z")], "mangled names exported")
check(("__android_log_print", False, True) in symbols(module), "__android_log_print not left to the platform")

needed = {re.sub(r"\.so.*", "", m) for m in re.findall(r"\(NEEDED\).*\[(.*)\]", "\n".join(readelf_lines(["-d"], module)))}
check("liblog" in needed and (sanitized or needed <= {"libc", "libm", "liblog"}), f"NEEDED {sorted(needed)}")

header = "\n".join(readelf_lines(["-h"], module))
check(re.search(r"Machine:\s+" + re.escape(machine) + r"\s*$", header, re.M), f"not built for {machine}")
aligns = [int(l.split()[-1], 16) for l in readelf_lines(["-l"], module) if l.split()[:1] == ["LOAD"]]
check(aligns and min(aligns) >= int(page), f"LOAD alignments {aligns} below {page}")

inexact = set()
for n in ("sin cos tan sincos asin acos atan atan2 sinh cosh tanh asinh acosh atanh exp exp2 exp10 expm1 "
          "log log2 log10 log1p pow cbrt hypot erf erfc lgamma tgamma sqrt").split():
    inexact |= {n, n + "f", n + "l"}
platform_imports = {n for n, defined, _ in symbols(platform_math) if not defined and n in inexact}
check({"powf", "atan2f", "asinf", "atanf"} <= platform_imports, f"platform math imports only {sorted(platform_imports)}")
leaked = {n for n, _, _ in symbols(reproducible) if n in inexact}
check(not leaked, f"the reproducible math still names {sorted(leaked)}")
check(exported(reproducible) == exported(platform_math), "the two math flavours export different names")

for f in failures:
    print("check_library:", f)
sys.exit(1 if failures else 0)
