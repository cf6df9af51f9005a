#!/usr/bin/env python3
"""The scripts in examples/batch/ join and prove many recordings. Jobs are killed and resumed, and
nothing half done is left. The command lines are those of the README there."""

import os
import pathlib
import re
import shutil
import signal
import socket
import subprocess
import time
import unittest

import runs
from runs import BIN, ROOT, has_tools

BATCH = ROOT / "examples" / "batch"
JOINING = runs.RELEASE_BIN / "clipjoin"
LIBRARY = runs.BIN / "libfault.so"  # works only in programs without sanitizers
ODD = "11 it's a \"walk\"\nho*me\\[x] $HOME"
NAMES = [f"{number:02} bay" for number in range(1, 13) if number != 11] + [ODD]
DAMAGED, EMPTY = "04 bay", "10 bay"
BAD = {DAMAGED, EMPTY}
GOOD = set(NAMES) - BAD
NOT_DONE = f"2 recordings have no movie:\n  '{DAMAGED}'\n  '{EMPTY}'\n"
SAVE = "cliptune -q 'recordings/01 bay/GX01.MP4' -save-in-place -set-looping"

# The tests call this clipjoin. It waits if the folder "held" has a file with the first two
# characters of the recording, and writes its process number into that file. Otherwise it is the
# program of the build.
HOLDING = """#!/bin/bash
recording=${2%/*} # $1 is -q, and $2 is a clip
recording=${recording##*/}
held=HELD/${recording:0:2}
if [[ -e $held ]]; then
  echo $$ >"$held.new"
  mv "$held.new" "$held"
  while :; do sleep 0.05; done
fi
exec CLIPJOIN "$@"
"""

CONFIGURATION = """ClusterName=test
SlurmctldHost={host}(127.0.0.1)
SlurmctldPort={ports[0]}
SlurmdPort={ports[1]}
SlurmUser=root
AuthInfo=socket={home}/munge.socket
StateSaveLocation={home}/state
SlurmdSpoolDir={home}/spool
SlurmctldPidFile={home}/slurmctld.pid
SlurmdPidFile={home}/slurmd.pid
SlurmctldLogFile={home}/slurmctld.log
SlurmdLogFile={home}/slurmd.log
ProctrackType=proctrack/linuxproc
SelectType=select/cons_tres
SelectTypeParameters=CR_CPU
SchedulerParameters=batch_sched_delay=0,sched_interval=1,sched_min_interval=10000
MpiDefault=none
NodeName={host} NodeAddr=127.0.0.1 CPUs={cpus}
PartitionName=test Nodes=ALL Default=YES
"""


def free_ports(number):
    sockets = [socket.create_server(("127.0.0.1", 0)) for _ in range(number)]
    ports = [each.getsockname()[1] for each in sockets]
    for each in sockets:
        each.close()
    return ports


def commands(section):
    """The commands in a section of the README."""
    text = (BATCH / "README.md").read_text()
    part = text.partition(f"\n## {section}\n")[2].partition("\n## ")[0]
    return re.search(r"^```(?:ba)?sh\n(.*?)^```$", part, re.M | re.S)[1]


def wait_until(true, what):
    for _ in range(1200):
        if true():
            return
        time.sleep(0.05)
    raise AssertionError(f"does not happen: {what}")


@has_tools("ffmpeg")
class BatchTest(runs.RunTest):
    @classmethod
    def setUpClass(cls):
        folder = runs.temporary_folder(cls)
        cls.clips = [
            runs.make_clip(
                folder / f"{pitch}.mp4",
                "-f", "lavfi", "-i", "testsrc=s=64x48:r=10:d=1",
                "-f", "lavfi", "-i", f"sine=frequency={pitch}:d=1",
                "-c:v", "mpeg4", "-c:a", "aac", "-movflags", "+faststart",
            ).read_bytes()
            for pitch in (440, 880)
        ]  # fmt: skip

    def setUp(self):
        super().setUp()
        self.recordings, self.joined = self.folder / "recordings", self.folder / "joined"
        for number, name in enumerate(NAMES):
            self.store(name, self.clips[:: 1 if number % 2 else -1])
        damaged = self.recordings / DAMAGED / "GX02.MP4"
        damaged.write_bytes(damaged.read_bytes()[:-4000])
        for clip in (self.recordings / EMPTY).iterdir():
            clip.rename(clip.with_suffix(".txt"))

        self.held, programs = self.folder / "held", self.folder / "bin"
        self.held.mkdir()
        programs.mkdir()
        holding = HOLDING.replace("HELD", str(self.held))
        (programs / "clipjoin").write_text(holding.replace("CLIPJOIN", str(BIN / "clipjoin")))
        (programs / "clipjoin").chmod(0o755)
        path = f"{programs}:{BATCH}:{BIN}:{os.environ['PATH']}"
        self.environment = {"PATH": path, "HOME": str(self.folder)}

    def store(self, name, clips):
        folder = self.recordings / name
        folder.mkdir(parents=True, exist_ok=True)
        for number, clip in enumerate(clips, 1):
            (folder / f"GX{number:02}.MP4").write_bytes(clip)

    def repair(self):
        for name in BAD:
            self.store(name, self.clips)

    def type(self, text):
        return runs.run("/bin/bash", "-c", text, cwd=self.folder, env=self.environment)

    def start(self, text):
        return subprocess.Popen(
            ["/bin/bash", "-c", f"exec {text}"], cwd=self.folder, start_new_session=True,
            env={**os.environ, **self.environment}, stdin=subprocess.DEVNULL,
            stdout=subprocess.DEVNULL, stderr=subprocess.DEVNULL,
        )  # fmt: skip

    def hold(self, *recordings):
        for recording in recordings:
            (self.held / recording).touch()

    def process_of_held(self, recording):
        file = self.held / recording
        wait_until(lambda: file.stat().st_size, f"the job {recording} starts")
        return int(file.read_text())

    def assert_done(self, names):
        """Exactly these recordings have movies. The movies show the clips in their order."""
        self.assertEqual({path.stem for path in self.joined.glob("*.mov")}, set(names))
        for name in names:
            self.assert_shows(self.joined / f"{name}.mov", name)

    def assert_shows(self, movie, name):
        clips = sorted((self.recordings / name).glob("*.MP4"))
        done = runs.run("clipinfo", "-same", movie, "-from", *clips)
        self.assertEqual(done.status, 0, done)

    def assert_nothing_half_done(self, *others):
        self.assertEqual(os.listdir(self.joined / "unproved"), [])
        rest = {p.name for p in self.joined.iterdir() if p.suffix != ".mov" or p.name[0] == "."}
        self.assertEqual(rest, {"unproved", *others})


@has_tools("parallel")
class Parallel(BatchTest):
    def runs_of(self, name):
        """The exit status and the signal of each run of the job that the log has."""
        place = sorted(NAMES).index(name) + 1
        rows = (line.split("\t") for line in (self.joined / "jobs.log").read_text().splitlines())
        return [(int(row[6]), int(row[7])) for row in rows if row[0] == str(place)]

    def join_all(self):
        return self.type(commands("One machine: GNU parallel"))

    def test_a_killed_job_and_a_killed_parallel_are_resumed(self):
        self.hold("03", "07", "09")
        parallel = self.start("join-all recordings joined -j 2")
        # A job is a process group.
        os.killpg(os.getpgid(self.process_of_held("03")), signal.SIGKILL)
        groups = [os.getpgid(self.process_of_held(held)) for held in ("07", "09")]
        os.killpg(parallel.pid, signal.SIGKILL)
        parallel.wait()
        for group in groups:
            os.killpg(group, signal.SIGKILL)
        before = {"01 bay", "02 bay", "05 bay", "06 bay", "08 bay"}
        self.assert_done(before)
        self.assert_nothing_half_done("jobs", "jobs.log")
        self.assertEqual(self.runs_of("03 bay"), [(0, 9)])

        shutil.rmtree(self.held)
        done = self.join_all()
        self.assertEqual(done.status, 1)
        self.assertTrue(done.err.endswith(NOT_DONE), done.err)
        self.assertRegex(done.err, rf"{DAMAGED}/GX02\.MP4: fault: .*the file was cut off")
        self.assertIn(f"'{EMPTY}': no clips", done.err)
        self.assert_done(GOOD)
        self.assert_nothing_half_done("jobs", "jobs.log")
        for name in before:
            self.assertEqual(self.runs_of(name), [(0, 0)], name)
        self.assertEqual(self.runs_of("03 bay"), [(0, 9), (0, 0)])

        self.repair()
        self.store("00 new", self.clips)
        self.assertEqual(self.join_all(), runs.Result(0, "", ""))
        self.assert_done({*NAMES, "00 new"})
        self.assertEqual(self.runs_of("01 bay"), [(0, 0)])

    def test_a_job_that_is_asked_to_end_leaves_nothing(self):
        self.hold("03")
        parallel = self.start("join-all recordings joined -j 2")
        os.killpg(os.getpgid(self.process_of_held("03")), signal.SIGTERM)
        self.assertEqual(parallel.wait(60), 1)
        self.assert_done(GOOD - {"03 bay"})
        self.assert_nothing_half_done("jobs", "jobs.log")

    def test_a_movie_that_lacks_a_clip_is_not_done(self):
        broken = self.folder / "bin" / "clipjoin"
        broken.write_text(f'#!/bin/bash\nexec {BIN}/clipjoin "${{@:1:2}}" "${{@:4}}"\n')
        done = self.type("join-one recordings joined '01 bay'")
        self.assertEqual(done.status, 1)
        self.assertIn("join-one: '01 bay': clipinfo -same failed\n", done.err)
        self.assert_done([])
        self.assert_nothing_half_done()

    def test_clips_of_all_recordings_in_one_folder_are_sorted(self):
        (self.folder / "clips").mkdir()
        for name in ("GX010123", "GX020123", "GX010124"):
            (self.folder / "clips" / f"{name}.MP4").touch()
        self.assertEqual(self.type(commands("The folders")), runs.Result(0, "", ""))
        self.assertEqual(
            sorted(str(p.relative_to(self.recordings)) for p in self.recordings.glob("012*/*")),
            ["0123/GX010123.MP4", "0123/GX020123.MP4", "0124/GX010124.MP4"],
        )

    @unittest.skipUnless(JOINING.exists(), f"there is no release build: {JOINING}")
    @unittest.skipUnless(LIBRARY.exists(), f"{LIBRARY} is not built")
    def test_a_join_killed_at_any_write_can_be_repeated(self):
        program = self.folder / "bin" / "clipjoin"
        for named in ("", "FAULT_NAMED=1"):
            left_over = set()
            for call in range(1, 100):
                faults = f"LD_PRELOAD={LIBRARY} FAULT_AT={call} FAULT_KIND=kill {named}"
                program.write_text(f'#!/bin/sh\n{faults} exec {JOINING} "$@"\n')
                done = self.type("join-one recordings joined '01 bay'")
                if done.status == 0:
                    break
                self.assertIn("clipjoin -q failed\n", done.err)
                self.assert_done([])
                left_over |= set(os.listdir(self.joined / "unproved"))
            self.assertGreater(call, 3)
            self.assert_done(["01 bay"])
            (self.joined / "01 bay.mov").unlink()
            # If each file needs a name, the unfinished one is hidden, and is not with the movies.
            hidden = {name for name in left_over if name.startswith(".01 bay.")}
            self.assertEqual((left_over, bool(left_over)), (hidden, bool(named)))


@has_tools("munged", "sbatch", "slurmctld", "slurmd")
@runs.needs_root
class Slurm(BatchTest):
    """This machine is the controller and the only node."""

    def setUp(self):
        super().setUp()
        home = self.folder / "slurm"
        self.folder.chmod(0o755)  # munged insists on it
        home.mkdir()
        (home / "munge.key").write_bytes(os.urandom(64))
        (home / "munge.key").chmod(0o400)
        (home / "slurm.conf").write_text(
            CONFIGURATION.format(
                home=home, host=socket.gethostname().partition(".")[0], cpus=os.cpu_count(),
                ports=free_ports(2),
            )
        )  # fmt: skip
        self.environment["SLURM_CONF"] = str(home / "slurm.conf")
        munged = ["munged", "--num-threads=1"]
        for option, file in (("key-file", "munge.key"), ("socket", "munge.socket"),
                             ("pid-file", "munged.pid"), ("log-file", "munged.log"),
                             ("seed-file", "munged.seed")):  # fmt: skip
            munged.append(f"--{option}={home / file}")
        for command in (munged, ["slurmctld"], ["slurmd"]):
            done = subprocess.run(
                command, env={**os.environ, **self.environment}, capture_output=True, timeout=30
            )
            self.addCleanup(self.stop, home / f"{command[0]}.pid")
            if done.returncode:
                self.skipTest(f"{command[0]} does not start: {done.stderr.decode()}")
        for _ in range(200):
            state = self.type("sinfo -h -o %T").out.strip()
            if state == "idle":
                return
            time.sleep(0.05)
        self.skipTest(f"the node is not ready: {state}")

    def stop(self, file):
        if file.exists():
            process = int(file.read_text())
            os.kill(process, signal.SIGTERM)
            wait_until(lambda: not pathlib.Path(f"/proc/{process}").exists(), f"{file.stem} ends")

    def submit(self, text):
        done = self.type(text)
        self.assertRegex(done.out, r"^Submitted batch job \d+\n$", done)
        return done.out.split()[-1]

    def wait_for_array(self, job):
        wait_until(lambda: not self.type(f"squeue -h -j {job}").out, f"array {job} ends")

    def test_cancelled_and_killed_tasks_are_submitted_again(self):
        self.hold("03", "07")
        job = self.submit(commands("Slurm"))
        self.process_of_held("03")
        self.type(f"scancel {job}_3")
        self.process_of_held("07")
        self.type(f"scancel --full --signal=KILL {job}_7")
        self.wait_for_array(job)
        self.assert_done(GOOD - {"03 bay", "07 bay"})
        self.assert_nothing_half_done()
        (log,) = self.folder.glob(f"slurm-{job}_4.out")
        self.assertRegex(log.read_text(), rf"{DAMAGED}/GX02\.MP4: fault: .*the file was cut off")

        shutil.rmtree(self.held)
        self.repair()
        fewer = re.sub(r"--array=\S+ [^)]*\)", "--array=1-2", commands("Slurm"))
        self.assertIn("--array=1-2 join-array.sbatch", fewer)
        self.wait_for_array(self.submit(fewer))
        self.assert_done(NAMES)
        self.assert_nothing_half_done()


@has_tools("fusermount3", "rclone")
class ObjectStorage(BatchTest):
    """A folder behind a mount of rclone stands in for object storage."""

    def setUp(self):
        super().setUp()
        self.bucket = self.folder / "bucket"
        self.bucket.mkdir()
        # rclone cannot upload a file with a newline in its name.
        (self.recordings / ODD).rename(self.recordings / ODD.replace("\n", " "))
        self.recordings.rename(self.bucket / "recordings")
        self.recordings.mkdir()
        self.environment |= {
            "RCLONE_CONFIG": "/dev/null",
            "RCLONE_CACHE_DIR": str(self.folder / "cache"),
            "RCLONE_CONFIG_REMOTE_TYPE": "alias",
            "RCLONE_CONFIG_REMOTE_REMOTE": str(self.bucket),
        }
        self.addCleanup(subprocess.run, ["fusermount3", "-uqz", self.recordings])
        done = self.mount("--read-only")
        if done.status:
            self.skipTest(f"no file system can be mounted here: {done.err}")
        self.unmount()

    def mount(self, *options):
        options = " ".join(options)
        return self.type(f"rclone mount --daemon {options} remote:recordings recordings")

    def unmount(self):
        # It is in use as long as files are being closed.
        wait_until(lambda: self.type("fusermount3 -u recordings").status == 0, "the mount ends")

    def test_movies_are_read_through_a_mount_and_uploaded(self):
        done = self.type(commands("Object storage"))
        self.assertEqual(done.status, 0, done)  # that of fusermount3
        self.assertTrue(done.err.endswith(NOT_DONE), done.err)
        good = {name.replace("\n", " ") for name in GOOD}
        self.assertEqual({path.stem for path in self.joined.glob("*.mov")}, good)
        self.assertEqual({path.stat().st_size for path in self.joined.glob("*.mov")}, {0})
        self.assert_nothing_half_done("jobs", "jobs.log")
        self.recordings = self.bucket / "recordings"
        self.joined = self.bucket / "joined"
        self.assert_done(good)

    def test_a_failed_upload_is_not_done(self):
        (self.bucket / "joined").touch()  # so no folder can have this name
        self.mount("--read-only")
        done = self.type("UPLOAD=remote:joined join-one recordings joined '01 bay'")
        self.assertEqual(done.status, 1)
        self.assertIn("rclone moveto failed\n", done.err)
        self.assert_done([])
        self.assert_nothing_half_done()

    def test_a_save_in_place_is_refused_without_a_cache(self):
        clip = self.bucket / "recordings" / "01 bay" / "GX01.MP4"
        old = clip.read_bytes()
        for option, error in (("--read-only", "-46"), ("--vfs-cache-mode=off", "-5000")):
            with self.subTest(option):
                self.mount(option)
                done = self.type(SAVE)
                self.unmount()
                self.assertEqual(clip.read_bytes(), old)
                self.assertIn(error, done.err)

    def test_a_save_in_place_in_a_cache_uploads_the_whole_object(self):
        clip = self.bucket / "recordings" / "01 bay" / "GX01.MP4"
        old = clip.read_bytes()
        self.mount("--vfs-cache-mode=writes", "--vfs-write-back=3s")
        done = self.type(SAVE)
        self.assertEqual(done, runs.Result(0, "", ""))
        # The save has succeeded, but the object is still the old one.
        self.assertEqual(clip.read_bytes(), old)
        wait_until(lambda: clip.read_bytes() != old, "the upload")
        self.unmount()

if __name__ == "__main__":
    runs.main()
