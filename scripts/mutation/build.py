"""The instrumented build: a copy of the tree that contains mutants."""
import collections
import concurrent.futures
import fcntl
import json
import os
import pathlib
import re
import shlex
import shutil
import subprocess

from . import generate
from .errors import MutationError

NOT_COPIED = shutil.ignore_patterns("build", "out", ".git", "__pycache__")
SWITCH = pathlib.Path(__file__).resolve().parent / "Mutant.h"
INCLUDED = re.compile(r'^#include "(?:[^"]*/)?([^"/]+)"', re.M)
TIMEOUT_S = 1800


def tail(output, lines=20):
    return "\n".join(output.splitlines()[-lines:])


def run(command, folder=None):
    try:
        done = subprocess.run([str(part) for part in command], cwd=folder, stdin=subprocess.DEVNULL, text=True,
                              stdout=subprocess.PIPE, stderr=subprocess.STDOUT, timeout=TIMEOUT_S, check=False)
    except subprocess.TimeoutExpired as error:
        raise MutationError(f"{error}") from error
    return done.returncode, done.stdout


def run_checked(command, folder=None):
    result, output = run(command, folder)
    if result != 0:
        raise MutationError(f"{' '.join(str(part) for part in command[:3])} ... failed:\n{tail(output)}")
    return output


def synchronize(source, copy):
    """Makes the copy equal to the source. Unchanged files keep their time stamps, so that they are not rebuilt."""
    def copy_changed(old, new):
        if not pathlib.Path(new).is_file() or pathlib.Path(new).read_bytes() != pathlib.Path(old).read_bytes():
            shutil.copyfile(old, new)

    shutil.copytree(source, copy, ignore=NOT_COPIED, copy_function=copy_changed, dirs_exist_ok=True)
    for file in [path for path in copy.rglob("*") if path.is_file() and not (source / path.relative_to(copy)).exists()]:
        file.unlink()


def parse(task):
    """Returns the sites of a translation unit, by file. Runs in a process of its own."""
    path, arguments, wanted = task
    unit = generate.Unit(path, arguments, wanted)
    return unit.errors, {file: list(sites.values()) for file, sites in unit.sites.items()}


class InstrumentedBuild:
    """A copy of the tree in folder/tree, of which the sources in `mutated` contain mutants.

    folder/build compiles several sources at a time, which is quicker. folder/commands is not built: it has the commands
    that compile one source.
    """

    def __init__(self, root, folder, mutated, options=()):
        self.root = root
        self.folder = folder
        self.tree = folder / "tree"
        self.build = folder / "build"
        self.singly = folder / "commands"
        self.mutated = mutated
        self.options = options
        self.jobs = len(os.sched_getaffinity(0))
        self.mutants = []

    def lock(self):
        """Locks the folder until this process exits."""
        self.folder.mkdir(parents=True, exist_ok=True)
        self.lock_file = open(self.folder / "lock", "w")
        try:
            fcntl.flock(self.lock_file, fcntl.LOCK_EX | fcntl.LOCK_NB)
        except BlockingIOError:
            raise MutationError(f"another run is using {self.folder}") from None

    def configure(self):
        self.tree.mkdir(exist_ok=True)
        synchronize(self.root, self.folder / "original")
        if not (self.tree / "CMakeLists.txt").exists():
            synchronize(self.root, self.tree)
        for build, unity in (self.singly, "OFF"), (self.build, "ON"):
            run_checked(["cmake", "-S", self.tree, "-B", build, "-G", "Ninja", "-DCMAKE_BUILD_TYPE=None",
                         "-DCMAKE_EXPORT_COMPILE_COMMANDS=ON", f"-DCMAKE_CXX_FLAGS=-w -include {SWITCH}",
                         "-DCMAKE_C_FLAGS=-w", f"-DNUVEQ_ORIGINAL_SOURCES={self.folder / 'original/src'}",
                         f"-DCMAKE_UNITY_BUILD={unity}", *self.options])

    def commands(self):
        """The compiler's arguments for each source that is mutated."""
        arguments = {}
        for entry in json.loads((self.singly / "compile_commands.json").read_text()):
            source = pathlib.Path(entry["file"]).relative_to(self.tree) \
                if pathlib.Path(entry["file"]).is_relative_to(self.tree) else None
            if source is not None and source.suffix == ".cpp" and self.is_mutated(source):
                arguments.setdefault(str(source), shlex.split(entry["command"]))
        if not arguments:
            raise MutationError(f"no sources to mutate in {' '.join(self.mutated)}")
        return arguments

    def is_mutated(self, source):
        return any(source.is_relative_to(folder) for folder in self.mutated)

    def mutated_files(self):
        """The sources and headers that are mutated."""
        original = self.folder / "original"
        return sorted(str(file.relative_to(original)) for folder in self.mutated
                      for file in (original / folder).rglob("*") if file.suffix in (".cpp", ".h"))

    def including(self, files):
        """Returns the compiled sources that are, or include, one of the files."""
        includes = {file: set(INCLUDED.findall((self.folder / "original" / file).read_text()))
                    for file in self.mutated_files()}
        found = set(files)
        while True:
            # By name, since headers are found in several folders. A source too many only takes time.
            names = {pathlib.PurePath(file).name for file in found}
            including = {file for file, included in includes.items() if included & names}
            if including <= found:
                return found & self.commands().keys()
            found |= including

    def collect(self, files):
        """Returns the sites of each of the files."""
        original = self.folder / "original"
        wanted = {str(original / file) for file in files}
        compiled = self.including(files)
        resources = run_checked(["clang", "-print-resource-dir"]).strip()
        tasks = []
        for source, command in self.commands().items():
            if source not in compiled:
                continue
            flags = [part.replace(str(self.tree), str(original)) for part in command[1:]]
            kept = [flag for flag, following in zip(flags, [*flags[1:], ""])
                    if flag.startswith(("-I", "-D", "-std="))]
            kept += [part for flag, folder in zip(flags, flags[1:]) if flag == "-isystem"
                     for part in (flag, folder)]
            tasks.append((str(original / source), ["-x", "c++", "-w", "-resource-dir", resources, *kept], wanted))
        sites = collections.defaultdict(dict)
        self.files = {}
        with concurrent.futures.ProcessPoolExecutor(self.jobs) as pool:
            for (path, _, _), (errors, found) in zip(tasks, pool.map(parse, tasks)):
                if errors:
                    raise MutationError(f"{path} has errors: {errors[0]}")
                self.files[str(pathlib.Path(path).relative_to(original))] = {
                    str(pathlib.Path(file).relative_to(original)) for file in found}
                for file, additional in found.items():
                    sites[str(pathlib.Path(file).relative_to(original))].update(
                        ((site.begin, site.end, site.replacement), site) for site in additional)
        return {source: list(found.values()) for source, found in sorted(sites.items())}

    def generate(self, files=None):
        """Generates the mutants of the files, or of all."""
        self.mutants, self.pairs = [], {}
        for source, sites in self.collect(self.mutated_files() if files is None else files).items():
            text = (self.folder / "original" / source).read_bytes()
            self.pairs[source] = generate.mutants_of(source, text, sites, len(self.mutants))
            self.mutants += [mutant for _, mutant in self.pairs[source]]

    def instrument(self, mutants):
        """Writes the sources with these mutants. Returns those that compile."""
        included = {mutant.number: mutant for mutant in mutants}
        self.write(included)
        changed = {mutant.source for mutant in mutants}
        commands = {source: command for source, command in self.commands().items() if self.files.get(source, set()) & changed}
        while commands:
            errors = self.syntax_errors(commands)
            for places in errors.values():
                # An error may entail others elsewhere.
                causes = [mutant for place in places for mutant in self.mutants_at(*place)]
                if not causes:
                    raise MutationError(f"no mutant causes the errors at {sorted(places)}")
                for mutant in causes:
                    included.pop(mutant.number, None)
            self.write(included)
            commands = {source: commands[source] for source in errors}
        return list(included.values())

    def programs_with(self, mutants, programs):
        """Returns the programs that contain one of the mutants, or load a library that does."""
        changed = {mutant.source for mutant in mutants}
        compiled = {str(self.tree / source) for source, files in self.files.items() if files & changed}
        return [program for program in programs
                if compiled & {*run_checked(["ninja", "-C", self.singly, "-t", "inputs", program]).splitlines()}]

    def write(self, included):
        """Writes the sources with the included mutants."""
        self.instrumented, self.ranges = {}, {}
        for source, pairs in self.pairs.items():
            text = (self.folder / "original" / source).read_bytes()
            self.instrumented[source], self.ranges[source] = generate.instrument(
                text, [pair for pair in pairs if pair[1].number in included])
        synchronize_instrumented(self.folder / "original", self.tree, self.instrumented)

    def mutants_at(self, source, line, column):
        """The mutants to which an error at this place of the instrumented source is due."""
        if source not in self.pairs:
            return []
        lines = self.instrumented[source].splitlines(keepends=True)
        line_begin = sum(len(earlier) for earlier in lines[:line - 1])
        place = line_begin + column - 1
        around = [range_ for range_ in self.ranges[source] if range_.begin <= place < range_.end]
        if around:
            return min(around, key=lambda range_: range_.end - range_.begin).mutants
        return [mutant for range_ in self.ranges[source] for mutant in range_.mutants
                if line_begin <= range_.begin < line_begin + len(lines[line - 1])]

    def syntax_errors(self, commands):
        """Returns the places (source, line, column) of the errors, by compiled source."""
        def check(command):
            command = [part for part in command if part != "-c"]
            at = command.index("-o")
            del command[at:at + 2]
            return run([*command, "-fsyntax-only", "-fno-diagnostics-show-caret"], self.singly)[1]

        with concurrent.futures.ThreadPoolExecutor(self.jobs) as pool:
            found = zip(commands, pool.map(check, commands.values()))
            return {source: places for source, output in found if (places := self.places(output))}

    def places(self, output):
        """Returns the places of the errors to deal with first."""
        # The error of a constant that depends on the active mutant lies in the definition of the macro, and entails
        # others.
        constants = re.findall(r"^(\S+?):(\d+):(\d+): note: in expansion of macro .NUVEQ_MUTANT", output, re.M)
        if constants:
            return {self.place(*place) for place in constants}
        # An error in a template of another library counts as one of the line that instantiates it.
        places, instantiated_from = set(), None
        pattern = r"^(\S+?):(\d+):(\d+): +(required from here|(?:fatal )?error:.*)"
        for *position, text in re.findall(pattern, output, re.M):
            place = self.place(*position)
            if text == "required from here":
                instantiated_from = place or instantiated_from
            elif place or instantiated_from:
                places.add(place or instantiated_from)
                instantiated_from = None
            else:
                raise MutationError(f"no mutant causes this error:\n{':'.join(position)}: {text}")
        return places

    def place(self, file, line, column):
        path = pathlib.Path(os.path.normpath(self.singly / file))
        return (str(path.relative_to(self.tree)), int(line), int(column)) if path.is_relative_to(self.tree) else None

    def compile(self, targets):
        run_checked(["cmake", "--build", self.build, "--parallel", self.jobs, "--target", *targets])


def synchronize_instrumented(original, tree, instrumented):
    """Makes the tree equal to the original except for the instrumented files."""
    def content(path):
        return instrumented.get(str(path.relative_to(original)))

    def copy_changed(old, new):
        wanted = content(pathlib.Path(old)) or pathlib.Path(old).read_bytes()
        if not pathlib.Path(new).is_file() or pathlib.Path(new).read_bytes() != wanted:
            pathlib.Path(new).write_bytes(wanted)
            shutil.copymode(old, new)

    shutil.copytree(original, tree, copy_function=copy_changed, dirs_exist_ok=True)
    for file in [path for path in tree.rglob("*")
                 if path.is_file() and not (original / path.relative_to(tree)).exists()]:
        file.unlink()
