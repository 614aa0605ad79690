#!/usr/bin/env python3
"""Runs every benchmark and prints one table.

Each row sets a figure of ours beside the floor or a peer measured in the
same run, so that a busy machine slows both sides alike. The data is
generated here, seeded, into a temporary directory.

    bench/run_all.py [--build build-bench] [--size tiny|small|large|both] [--runs 5] [--idle 60]

--size both (the default) measures start-up and memory with the small and
the large database and everything else with the large one. tiny is the
smoke run of CI: every step once on little data, without targets.
"""

import argparse
import glob
import json
import os
import shutil
import statistics
import subprocess
import sys
import tempfile
import time

SIZES = {
    # accounts, nodes, entries
    "tiny": (5, 100, 1000),
    "small": (5, 10_000, 100_000),
    "large": (5, 100_000, 1_000_000),
}
ROOT = os.path.dirname(os.path.dirname(os.path.abspath(__file__)))


def run(command, env=None, timeout=3600):
    """Runs a command to its end; its key=value lines and its peak memory in MB."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.PIPE, env=env, text=True)
    out, err = process.communicate(timeout=timeout)
    if process.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed ({process.returncode}): {err[-2000:]}")
    values = {"_stdout": out}
    for line in out.splitlines():
        if "=" in line:
            key, _, value = line.partition("=")
            try:
                values[key.strip()] = float(value)
            except ValueError:
                values[key.strip()] = value.strip()
    return values


def peak_rss_run(command, env=None):
    """Like run(), with the child's own peak resident memory in MB."""
    process = subprocess.Popen(command, stdout=subprocess.PIPE, stderr=subprocess.DEVNULL, env=env, text=True)
    out = process.stdout.read()
    _, status, usage = os.wait4(process.pid, 0)
    process.returncode = os.waitstatus_to_exitcode(status)
    if process.returncode != 0:
        raise RuntimeError(f"{' '.join(command)} failed ({process.returncode})")
    values = {}
    for line in out.splitlines():
        key, _, value = line.partition("=")
        if value:
            values[key] = float(value)
    values["peak_mb"] = usage.ru_maxrss / 1024
    return values


def median_of(runs, command, key, env=None):
    """The median of `key` over fresh processes, and the largest peak memory."""
    results = [peak_rss_run(command, env) for _ in range(runs)]
    return statistics.median(r[key] for r in results), max(r["peak_mb"] for r in results), results[0]


def gbench(binary, name, env=None):
    """One google-benchmark case: its real time in ms and its counters."""
    out = subprocess.run([binary, f"--benchmark_filter=^{name}(/|$)", "--benchmark_format=json"], check=True,
                         capture_output=True, text=True, env=env).stdout
    data = json.loads(out)
    case = [b for b in data["benchmarks"] if b.get("run_type", "iteration") == "iteration"][0]
    return case


class Table:
    def __init__(self):
        self.rows = []

    def add(self, number, what, ours, other, target, met):
        mark = "n/a" if met is None else ("yes" if met else "NO")
        self.rows.append((str(number), what, ours, other, target, mark))

    def print(self):
        self.rows.sort(key=lambda row: int(row[0]))
        header = ("#", "What", "Norvo", "Floor / peer (same run)", "Target", "Met")
        widths = [max(len(str(row[i])) for row in self.rows + [header]) for i in range(len(header))]
        line = lambda row: "| " + " | ".join(str(c).ljust(w) for c, w in zip(row, widths)) + " |"
        print(line(header))
        print("|" + "|".join("-" * (w + 2) for w in widths) + "|")
        for row in self.rows:
            print(line(row))


def ms(seconds):
    return f"{seconds * 1000:.0f} ms" if seconds < 10 else f"{seconds:.1f} s"


def make_home(scratch, name, tool, size):
    """A home whose database is a generated one of this size."""
    home = os.path.join(scratch, name)
    database = os.path.join(home, "XDG_DATA_HOME", "com.tesselwick.norvo", "Integrations.edb")
    accounts, nodes, entries = SIZES[size]
    info = run([tool, "generate", database, str(accounts), str(nodes), str(entries)])
    return home, database, info["bytes"]


def fresh_copy(home, scratch):
    """A copy of a home, so that a saving run leaves the original as generated."""
    copy = os.path.join(scratch, "copy")
    shutil.rmtree(copy, ignore_errors=True)
    shutil.copytree(home, copy)
    return copy


def database_rows(table, tool, scratch, home, database, size_mb, runs, size):
    load, load_peak, counts = median_of(runs, [tool, "load", home], "load_s")
    plist_parse, plist_peak, _ = median_of(runs, [tool, "libplist-parse", database], "parse_s")
    pugi_parse, pugi_peak, _ = median_of(runs, [tool, "pugixml-parse", database], "parse_s")
    description = (f"{int(counts['accounts'])} accounts, {int(counts['nodes']):,} nodes, "
                   f"{int(counts['entries']):,} entries, {size_mb:.0f} MB")
    table.add("1", f"database load, fresh process, median of {runs} ({description})", ms(load),
              f"libplist parse {ms(plist_parse)}, pugixml parse {ms(pugi_parse)}",
              "< libplist parse", None if size == "tiny" else load < plist_parse)
    table.add("1", "peak memory after load", f"{load_peak:.0f} MB", f"libplist parse {plist_peak:.0f} MB",
              "< 1/3 of libplist, <= 300 MB",
              None if size == "tiny" else load_peak < plist_peak / 3 and load_peak <= 300)
    table.add("7", "resident memory once loaded", f"{counts['resident_after_load_mb']:.0f} MB", "", "<= 300 MB",
              None if size == "tiny" else counts["resident_after_load_mb"] <= 300)

    saves, writes = [], []
    for _ in range(runs):
        copy = fresh_copy(home, scratch)
        saves.append(run([tool, "save", copy])["save_all_blocked_s"])
        writes.append(run([tool, "libplist-write", database, os.path.join(scratch, "libplist.xml")])["write_s"])
    save, write = statistics.median(saves), statistics.median(writes)
    table.add("1", "full save at quit (temporary file, fsync, rename), every account changed, median", ms(save),
              f"libplist write {ms(write)}", "< libplist write", None if size == "tiny" else save < write)

    copy = fresh_copy(home, scratch)
    auto = run([tool, "autosave", copy])
    table.add("2", "autosave, nothing changed: main thread blocked / bytes written",
              f"{ms(auto['unchanged_blocked_s'])} / {int(auto['unchanged_bytes'])} B", "", "< 50 ms, 0 B",
              None if size == "tiny" else auto["unchanged_blocked_s"] < 0.05 and auto["unchanged_bytes"] == 0)
    stalls = [auto[f"running_{i}_blocked_s"] for i in range(5)]
    written = [auto[f"running_{i}_bytes"] for i in range(5)]
    table.add("2", "autosave with the timer running: main-thread stall median / worst of 5; bytes written per autosave",
              f"{ms(statistics.median(stalls))} / {ms(max(stalls))}; {statistics.median(written):,.0f} B",
              f"before: the {size_mb:.0f} MB file rewritten", "< 50 ms",
              None if size == "tiny" else max(stalls) < 0.05)
    table.add("2", "a run stopped (log entry and time, durable at once): main-thread stall / bytes written",
              f"{ms(auto['stop_blocked_s'])} / {int(auto['stop_bytes']):,} B", "", "< 50 ms",
              None if size == "tiny" else auto["stop_blocked_s"] < 0.05)
    return counts


def kill_row(table, tool, scratch, size):
    """Seconds of a running timer lost to kill -9, over many kills. The
    journal's cadence does not depend on the database's size, so a tiny one
    keeps each restart short."""
    home, _, _ = make_home(scratch, "kills", tool, "tiny")
    kills = 3 if size == "tiny" else 100
    out = run([tool, "kill-loss", home, str(kills)], timeout=7200)["_stdout"]
    lost = [float(line.partition("=")[2]) for line in out.splitlines() if line.startswith("lost_s=")]
    table.add("11", f"seconds of a running timer lost per kill -9: median / worst of {len(lost)} kills",
              f"{statistics.median(lost):.1f} s / {max(lost):.1f} s", "before: up to 300 s", "<= 10 s",
              None if size == "tiny" else max(lost) <= 10)


def timewarrior_row(table, tool, scratch, home, size):
    timew = shutil.which("timew")
    rows = SIZES[size][2]
    csv = os.path.join(scratch, "log.csv")
    ours = run([tool, "csv-export", home, csv])
    if not timew:
        table.add("7", f"CSV export of {int(ours['rows']):,} runs", ms(ours["export_s"]),
                  "timew not installed (scripts/deps.sh bench)", ">= 5x faster than timew export", None)
        return
    db = os.path.join(scratch, "timewarrior")
    os.makedirs(os.path.join(db, "data"), exist_ok=True)
    open(os.path.join(db, "timewarrior.cfg"), "w").write("verbose = off\nconfirmation = off\n")
    # The same number of intervals, ten minutes each, one file per month.
    start = 1_500_000_000
    files = {}
    for index in range(rows):
        begin = start + index * 900
        tm = time.gmtime(begin)
        key = f"{tm.tm_year:04d}-{tm.tm_mon:02d}"
        stamp = lambda t: time.strftime("%Y%m%dT%H%M%SZ", time.gmtime(t))
        files.setdefault(key, []).append(f"inc {stamp(begin)} - {stamp(begin + 600)} # \"Project {index % 997}\" task\n")
    for key, lines in files.items():
        with open(os.path.join(db, "data", key + ".data"), "w") as handle:
            handle.writelines(lines)
    env = dict(os.environ, TIMEWARRIORDB=db)
    started = time.monotonic()
    with open(os.devnull, "w") as sink:
        subprocess.run([timew, "export"], check=True, stdout=sink, env=env)
    theirs = time.monotonic() - started
    ratio = theirs / ours["export_s"]
    table.add("7", f"CSV export of {int(ours['rows']):,} runs (load excluded)", ms(ours["export_s"]),
              f"timew export of {rows:,} intervals {ms(theirs)} ({ratio:.1f}x)", ">= 5x faster",
              None if size == "tiny" else ratio >= 5)


def shell_rows(table, build, size):
    tiny = size == "tiny"
    env = dict(os.environ, NORVO_BENCH_TINY="1") if tiny else None
    judge = lambda met: None if tiny else met
    merge = gbench(os.path.join(build, "bench", "norvo_bench"), "BM_MergeRefresh100000Into100000", env)
    table.add("3", "merge 100,000 fetched into 100,000 local (renames, 5% new, 5% vanished)",
              f"{merge['real_time']:.0f} ms", "", "< 500 ms", judge(merge["real_time"] < 500))
    shell = os.path.join(build, "bench", "norvo_shell_bench")
    if not os.path.exists(shell):
        table.add("4", "quick search", "not built", "", "", None)
        return
    typing = gbench(shell, "BM_QuickSearchTyping", env)
    table.add("4", f"quick search over 100,000 leaves, 20 queries, {int(typing['keystrokes'])} keystrokes: median / worst",
              f"{typing['median_ms']:.1f} / {typing['worst_ms']:.1f} ms", "", "worst < 10 ms", judge(typing["worst_ms"] < 10))
    menu = gbench(shell, "BM_OpenStatusMenu", env)
    table.add("5", "status menu with 10,000 nodes (offscreen)", f"{menu['real_time']:.0f} ms", "", "< 100 ms",
              judge(menu["real_time"] < 100))


def jira_row(table, build, size):
    tool = os.path.join(build, "bench", "norvo_bench_jira")
    if not os.path.exists(tool):
        table.add("6", "JIRA sync of 20,000 issues (21 pages), loopback", "not built", "", "< 2 s", None)
        return
    result = run([tool, "1000" if size == "tiny" else "20000"])
    table.add("6", f"JIRA sync of {int(result['issues']):,} issues ({int(result['pages'])} pages), loopback, end to end",
              ms(result["sync_s"]), "", "< 2 s", None if size == "tiny" else result["sync_s"] < 2)


def desktop_rows(table, build, homes, seconds, tiny):
    norvo = os.path.join(build, "src", "norvo")
    if not os.path.exists(norvo):
        table.add("8", "idle and start-up of the real program", "norvo not built", "", "", None)
        return
    # The window comes before the database is read: 300 ms whatever its size.
    targets = {"none": (0.3, 60), "small": (0.3, 150), "large": (0.3, 500)}
    for name, home in homes:
        args = [os.path.join(ROOT, "bench", "idle_cpu.sh"), norvo, str(seconds)]
        if home:
            args.append(os.path.join(home, "XDG_DATA_HOME", "com.tesselwick.norvo", "Integrations.edb"))
        result = run(args, timeout=seconds * 3 + 600)
        start_target, rss_target = targets.get(name, targets["small"])
        judge = lambda met: None if tiny else met
        table.add("9", f"start-up to the timer window, {name} database", ms(result["start_s"]), "",
                  f"< {ms(start_target)}", judge(result["start_s"] < start_target))
        if "projects_s" in result:
            table.add("9", f"start-up to the projects read (behind the window), {name} database",
                      ms(result["projects_s"]), "", "", None)
        table.add("8", f"idle {seconds} s, timer running, {name} database: CPU / wake-ups per s",
                  f"{result['running_cpu_percent']:.2f}% / {result['running_wakeups_per_s']:.1f}", "",
                  "< 0.3% of a core", judge(result["running_cpu_percent"] < 0.3))
        table.add("8", f"resident memory, {name} database", f"{result['rss_mb']:.0f} MB", "", f"< {rss_target} MB",
                  judge(result["rss_mb"] < rss_target))


def norvoctl_row(table, build):
    """Runs the round-trip script of norvoctl when both it and the program exist.

    The script is called with the build tree; it prints round_trip_s=<seconds>
    (any other output is shown as it stands)."""
    scripts = sorted(glob.glob(os.path.join(ROOT, "bench", "norvoctl_status*")))
    programs = [path for path in glob.glob(os.path.join(build, "**", "norvoctl"), recursive=True)
                if os.access(path, os.X_OK) and os.path.isfile(path)]
    if not scripts or not programs:
        table.add("10", "norvoctl status round trip", "n/a", "", "< 50 ms", None)
        return
    result = run([scripts[0], build])
    value = result.get("round_trip_s")
    if isinstance(value, float):
        table.add("10", "norvoctl status round trip", ms(value), "", "< 50 ms", value < 0.05)
    else:
        last = (result["_stdout"].strip().splitlines() or ["no output"])[-1]
        table.add("10", "norvoctl status round trip", last, "", "< 50 ms", None)


def main():
    parser = argparse.ArgumentParser(description=__doc__, formatter_class=argparse.RawDescriptionHelpFormatter)
    parser.add_argument("--build", default=os.path.join(ROOT, "build-bench"))
    parser.add_argument("--size", default="both", choices=["tiny", "small", "large", "both"])
    parser.add_argument("--runs", type=int, default=5)
    parser.add_argument("--idle", type=int, default=60, help="seconds of each idle measurement")
    parser.add_argument("--skip-desktop", action="store_true", help="leave out rows 8 and 9 (the real program)")
    args = parser.parse_args()
    build = os.path.abspath(args.build)
    tool = os.path.join(build, "bench", "norvo_bench_db")
    main_size = "large" if args.size == "both" else args.size
    table = Table()
    with tempfile.TemporaryDirectory(prefix="norvo-bench-") as scratch:
        home, database, size = make_home(scratch, main_size, tool, main_size)
        database_rows(table, tool, scratch, home, database, size / 1e6, args.runs, main_size)
        kill_row(table, tool, scratch, main_size)
        shell_rows(table, build, main_size)
        jira_row(table, build, main_size)
        timewarrior_row(table, tool, scratch, home, main_size)
        if not args.skip_desktop:
            homes = [("none", "")]
            if args.size == "both":
                small_home, _, _ = make_home(scratch, "small", tool, "small")
                homes += [("small", small_home), ("large", home)]
            else:
                homes.append((main_size, home))
            desktop_rows(table, build, homes, args.idle, main_size == "tiny")
        norvoctl_row(table, build)
    table.print()


if __name__ == "__main__":
    sys.exit(main())
