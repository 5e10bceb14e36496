"""What `cmake --install` puts in place: every program says its version, and every page is there."""

import os
import re
import shutil
import subprocess

import pytest

from build_tree import SOURCE

PROGRAMS = {"usr/bin/trackctl", "usr/bin/trackctl-watch", "usr/sbin/object_tracking",
            "usr/sbin/trackpolicy", "usr/sbin/qmond",
            "usr/libexec/object_tracking/trackctl-what-if"}
# Those that people run. The others are told of in a page of who starts them.
WITH_PAGE = {path for path in PROGRAMS if "libexec" not in path}


@pytest.fixture(scope="module")
def installed(build, tmp_path_factory):
    if shutil.which("cmake") is None:
        pytest.skip("cmake is not installed")
    if build.missing("trackctl-watch", "trackctl-what-if", "trackpolicy"):
        pytest.skip("only a part of the programs is built")
    root = tmp_path_factory.mktemp("installed")
    subprocess.run(["cmake", "--install", build.path, "--prefix", "/usr"], check=True,
                   stdout=subprocess.DEVNULL, env={**os.environ, "DESTDIR": str(root)})
    return root


def programs(root):
    """Every file below `root` that can be run and is no library."""
    return {str(path.relative_to(root)) for path in root.rglob("*")
            if path.is_file() and os.access(path, os.X_OK)
            and not re.search(r"\.(so[.0-9]*|dll)$", path.name)}


def version():
    return re.search(r"^project\(.* VERSION ([\d.]+) ", (SOURCE / "CMakeLists.txt").read_text(),
                     re.M).group(1)


def test_every_program_says_the_one_version(build, installed):
    assert programs(installed) == PROGRAMS
    environment = {**build.environment(installed / "nowhere"),
                   "LD_LIBRARY_PATH": str(installed / "pkg/lib")}
    for path in sorted(PROGRAMS):
        said = subprocess.run([*build.command("")[:-1], installed / path, "--version"],
                              env=environment, stdin=subprocess.DEVNULL, stdout=subprocess.PIPE,
                              stderr=subprocess.PIPE, text=True)
        assert (said.returncode, said.stdout, said.stderr) == (
            0, f"{os.path.basename(path)} {version()}\n", ""), path


def test_the_program_that_trackctl_runs_says_so(build):
    for words, status in ((["--help"], 0), (["--json"], 1), (["--version", "now"], 1)):
        said = subprocess.run([*build.command("trackctl-what-if"), *words], stdin=subprocess.DEVNULL,
                              stdout=subprocess.PIPE, stderr=subprocess.PIPE, text=True,
                              env=build.environment("/"))
        told = ("trackctl-what-if has no options but --help and --version: `trackctl what-if` runs "
                "it, see its --help\n")
        assert (said.returncode, said.stdout, said.stderr) == (
            status, *((told, "") if status == 0 else ("", told)))


def test_the_packages_and_the_library_have_that_version_too(installed):
    changelog = (SOURCE / "debian/changelog").read_text()
    assert re.match(r"object-tracking \((\S+)\)", changelog).group(1) == version()
    [described] = installed.rglob("object-tracking.pc")
    assert f"\nVersion: {version()}\n" in described.read_text()
    entries = re.findall(r"^## \[([\d.]+)\]", (SOURCE / "CHANGELOG.md").read_text(), re.M)
    assert entries[0] == version()


def test_every_program_has_a_page_without_mistakes(installed):
    for path in sorted(WITH_PAGE):
        name = os.path.basename(path)
        [page] = (installed / "usr/share/man").rglob(f"{name}.[18]")
        assert re.match(rf'\.TH {name.upper()} [18] ', page.read_text()), page
        if shutil.which("groff") is not None:
            said = subprocess.run(["groff", "-man", "-Tutf8", "-ww", "-z", page],
                                  stdout=subprocess.PIPE, stderr=subprocess.STDOUT, text=True)
            assert (said.returncode, said.stdout) == (0, ""), page
    assert "trackctl-what-if" in (installed / "usr/share/man/man1/trackctl.1").read_text()


def test_the_pages_of_the_packages_lead_to_pages_of_the_packages():
    packaged = {line for path in (SOURCE / "debian").glob("*.docs")
                for line in path.read_text().split() if line.startswith("docs/")}
    assert "docs/operations.md" in packaged
    for page in sorted(packaged):
        linked = re.findall(r"\]\(([\w-]+\.md)", (SOURCE / page).read_text(encoding="utf-8"))
        # That one is for those who have the sources.
        missing = {f"docs/{name}" for name in linked} - packaged - {"docs/packaging.md"}
        assert not missing, page
