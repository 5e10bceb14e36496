"""What programs that were built against the C library rely on: its symbols with their versions, its
numbers, and how its structures lie in memory. A change here needs a new version of the symbols, or
of the library; an addition is added to the record, tests/e2e/client_abi.txt."""

import pathlib
import re
import subprocess

import pytest

from build_tree import SOURCE

RECORD = pathlib.Path(__file__).with_name("client_abi.txt")
HEADER = SOURCE / "tools/client/object_tracking.h"


def symbols(library):
    listing = subprocess.run(["nm", "-D", "--defined-only", "--with-symbol-versions", library],
                             check=True, capture_output=True, text=True).stdout
    # A sanitizer adds symbols of its own.
    return sorted(line.split()[-1] for line in listing.splitlines() if "asan" not in line)


def source_without_comments():
    return re.sub(r"/\*.*?\*/", "", HEADER.read_text(encoding="utf-8"), flags=re.S)


def declarations():
    """Every function's declaration, in one line, however it is formatted."""
    return sorted(re.sub(r"(?<=\w)\s*(\*+)\s*", r" \1", " ".join(each.split())) for each in
                  re.findall(r"^[a-z][^;{}#]*\botrack_\w+\([^;]*\);", source_without_comments(), re.M))


def measured(tmp_path):
    """Numbers and layouts, as the compiler has them."""
    source = source_without_comments()
    words = re.findall(r"\b(OTRACK_\w+) = ", source)
    lines = [f'printf("{word} %d\\n", {word});' for word in words]
    for body, name in re.findall(r"typedef struct \w+ \{(.*?)\} (\w+);", source, re.S):
        for member in re.findall(r"(\w+);", body):
            lines.append(f'printf("{name}.{member} %zu %zu\\n", offsetof({name}, {member}), '
                         f'sizeof(({name} *)0)->{member});')
    program = tmp_path / "layout.c"
    program.write_text('#include <object_tracking.h>\n#include <stdio.h>\nint main(void) {\n' +
                       "\n".join(lines) + "\nreturn 0;\n}\n", encoding="utf-8")
    subprocess.run(["cc", "-std=c99", "-Wall", "-Wextra", "-Werror", f"-I{HEADER.parent}", program,
                    "-o", tmp_path / "layout"], check=True)
    return subprocess.run([tmp_path / "layout"], check=True, capture_output=True,
                          text=True).stdout.splitlines()


def test_nothing_that_programs_rely_on_changes(build, tmp_path):
    present = [*symbols(build.path / "lib/libobject-tracking.so.1"), "", *declarations(), "",
               *measured(tmp_path)]
    assert RECORD.read_text(encoding="utf-8").splitlines() == present


def test_the_header_is_good_for_c_and_cpp(tmp_path):
    program = tmp_path / "empty.c"
    program.write_text("#include <object_tracking.h>\nint main(void) { return 0; }\n",
                       encoding="utf-8")
    for compiler in (["cc", "-std=c99"], ["c++", "-x", "c++", "-std=c++11"]):
        subprocess.run([*compiler, "-pedantic", "-Wall", "-Wextra", "-Werror", "-fsyntax-only",
                        f"-I{HEADER.parent}", program], check=True)


def test_the_example_builds_and_follows(service, tmp_path):
    if service.build.sanitized:
        pytest.skip("its program would need the sanitizer's runtime")
    library = service.build.path / "lib"
    subprocess.run(["cc", "-std=c99", "-Wall", "-Wextra", "-Werror", f"-I{HEADER.parent}",
                    SOURCE / "examples/follow.c", f"-L{library}", "-lobject-tracking",
                    f"-Wl,-rpath,{library}", "-o", tmp_path / "follow"], check=True)
    service.ctl("set", "office", "interface", "mark-up")
    service.wait_state("office", "up")
    process = subprocess.Popen([tmp_path / "follow"], stdout=subprocess.PIPE, text=True,
                               env=service.build.environment(service.root))
    try:
        assert process.stdout.readline() == "office is up\n"
        service.net.ip("link set mark-up down")
        assert process.stdout.readline() == "office is down\n"
        service.daemon.kill()
        assert process.stdout.readline() == "the service is away\n"
    finally:
        process.kill()
        process.communicate()
