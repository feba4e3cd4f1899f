"""Processes, and what they use: by the kernel's own books, never by a wall clock."""

import contextlib
import os
import pathlib
import statistics
import subprocess
import time

PROJECT = pathlib.Path(__file__).resolve().parents[2]


class Programs:
    """The built programs, in the folder of a build."""

    def __init__(self, folder=None):
        if folder is None:
            folder = PROJECT / "build/release"
            subprocess.run(["cmake", "--preset", "release"], cwd=PROJECT, check=True,
                           stdout=subprocess.DEVNULL)
            subprocess.run(["cmake", "--build", folder, "--target", "orvelle-measured", "--",
                            "--quiet"], cwd=PROJECT, check=True)
        folder = pathlib.Path(folder).resolve()
        self.orvelle = folder / "orvelle/orvelle"
        self.benchmark = folder / "bench/orvelle_bench"
        self.filter = folder / "bench/orvelle-filter"
        self.lv2 = folder / "bench/orvelle-lv2"
        self.paced = folder / "bench/orvelle-paced"
        self.session = folder / "bench/orvelle-session"
        self.controller = folder / "tests/session/orvelle-controller"
        self.shell_test = folder / "tests/shell/orvelle_shell_test"


def cpu_seconds_of_run(command, input_path=None, output_path=os.devnull, environment=None):
    """CPU time, of the user and of the system, of a whole process from its start to its end."""
    with open(input_path or os.devnull, "rb") as source, open(output_path, "wb") as sink:
        process = subprocess.Popen(command, stdin=source, stdout=sink, stderr=subprocess.PIPE,
                                   env=environment)
        message = process.stderr.read()
        _, status, usage = os.wait4(process.pid, 0)
        process.returncode = os.waitstatus_to_exitcode(status)
    process.stderr.close()
    if process.returncode != 0:
        raise RuntimeError(f"{command[0]}: {message.decode(errors='replace').strip()}")
    return usage.ru_utime + usage.ru_stime


def _tasks(pid, name):
    for task in pathlib.Path(f"/proc/{pid}/task").iterdir():
        with contextlib.suppress(FileNotFoundError, ProcessLookupError):
            yield (task / name).read_text()


def cpu_seconds(pid):
    """CPU time that the living threads of a process have used so far, to the nanosecond."""
    return 1e-9 * sum(int(text.split()[0]) for text in _tasks(pid, "schedstat"))


def wake_ups(pid):
    """How often the threads of a process have gone to sleep, and so have been woken."""
    key = "voluntary_ctxt_switches:"
    return sum(int(line.split()[1]) for text in _tasks(pid, "status")
               for line in text.splitlines() if line.startswith(key))


def memory_megabytes(pid):
    """(resident, its own part of that): what it shares with others counts in the first alone."""
    sizes = {}
    for line in pathlib.Path(f"/proc/{pid}/smaps_rollup").read_text().splitlines()[1:]:
        name, size, *_ = line.split()
        sizes[name] = int(size) * 1024e-6
    return sizes["Rss:"], sizes["Private_Clean:"] + sizes["Private_Dirty:"]


def children(pid):
    """Command name, of which the kernel keeps 15 letters, and process id of each child."""
    text = "".join(_tasks(pid, "children"))
    return {pathlib.Path(f"/proc/{child}/comm").read_text().strip(): int(child)
            for child in text.split()}


class Companion:
    """A process that runs while something is measured. Ends with its standard input, or by SIGINT
    when it does not listen there."""

    def __init__(self, command, environment=None, until=None, ends_with_input=True):
        self.lines = []
        self._ends_with_input = ends_with_input
        self._process = subprocess.Popen(command, env=environment, stdin=subprocess.PIPE,
                                         stdout=subprocess.PIPE, text=True)
        self.pid = self._process.pid
        if until is not None:
            self.wait_for(until)

    def wait_for(self, text):
        """Reads on until a line contains `text`."""
        for line in self._process.stdout:
            self.lines.append(line.rstrip("\n"))
            if text in line:
                return
        raise RuntimeError(f"{self._process.args[0]} has ended without \"{text}\"")

    def tell(self, line):
        self._process.stdin.write(line + "\n")
        self._process.stdin.flush()

    def __enter__(self):
        return self

    def __exit__(self, *_):
        if not self._ends_with_input:
            self._process.send_signal(2)
        self._process.stdin.close()
        try:
            self._process.wait(20)
        except subprocess.TimeoutExpired:
            self._process.kill()
            self._process.wait()
        self._process.stdout.close()


class Session(Companion):
    """A private session with devices "hw_1" (the best one), "hw_2" and so on."""

    def __init__(self, programs, quantum=512, devices=1):
        super().__init__([programs.session, "hold", "--quantum", str(quantum), "--devices",
                          str(devices)], until="ready")
        self.environment = dict(line.split("=", 1) for line in self.lines[:-1])
        self.directory = pathlib.Path(self.environment["HOME"]).parent
        self._programs = programs

    def server(self):
        """The process id of the server proper."""
        return children(self.pid)["pipewire"]

    def settle(self, limit_seconds=120):
        """Waits until the session manager has nothing more to do: with hundreds of objects, it goes
        on for seconds after they are there."""
        manager = children(self.pid)["wireplumber"]
        end = time.monotonic() + limit_seconds
        quiet = 0
        while quiet < 2:
            quiet = quiet + 1 if cpu_shares([manager], 0.4)[0] < 0.02 else 0
            if time.monotonic() > end:
                raise RuntimeError("the session manager does not come to an end")

    def players(self, playing=1, waiting=0):
        """One process with streams that play noise, and streams that wait."""
        return Companion([self._programs.session, "play", "--players", str(playing), "--waiting",
                          str(waiting)], self.environment, until="ready")

    def orvelle(self, *words):
        """A command that runs until Ctrl-C, as soon as it works."""
        return Companion([self._programs.orvelle, *words], self.environment,
                         until="Ctrl-C to stop.", ends_with_input=False)

    def list_seconds(self):
        """CPU time of `orvelle list`, the median of five runs."""
        return statistics.median(
            cpu_seconds_of_run([self._programs.orvelle, "list"], environment=self.environment)
            for _ in range(5))

    def application(self, bands, gain):
        """The application as it is with its panel closed, without the icon: boosting into "hw_1"
        with these band gains in dB."""
        settings = self.directory / "orvelle.conf"
        settings.write_text(
            'orvelle-settings 1\ndeviceSettings.v1={"hw_1":{"boost":%g,"eqEnabled":true,'
            '"eqPreset":"Custom","spatialEnabled":false,"spatialWidth":1.5,"customGains":%s}}\nend\n'
            % (gain, list(bands)))
        application = Companion([self._programs.controller, settings], self.environment,
                                until="ready")
        application.tell("toggle")
        application.wait_for("on")
        return application


def cpu_shares(pids, seconds):
    """What part of a core each process uses, all over the same time."""
    before = [cpu_seconds(pid) for pid in pids]
    begin = time.monotonic()
    time.sleep(seconds)
    after = [cpu_seconds(pid) for pid in pids]
    passed = time.monotonic() - begin
    return [(last - first) / passed for first, last in zip(before, after)]
