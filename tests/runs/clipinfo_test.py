#!/usr/bin/env python3
"""clipinfo about hostile movies, and about every movie: its facts are those of ffprobe, and only
movies that are cut have a fault."""

import json
import os
import resource

import runs
from runs import SANITIZERS, atom, u32

MOVIES = [
    path
    for folder in (runs.ROOT / "tests" / "data", runs.MEDIA)
    for path in sorted(folder.rglob("*"))
    if path.suffix and path.parent.name != "finds" and path.stat().st_size < 20e6
]
# Movies of the collection that are not whole: their media were left out or cut.
NOT_WHOLE = {
    "adif_CBR88_8s.aac", "adts-sf-escape.aac", "fixture-adts-mpeg2.aac", "QuickTime.mov",
    "pentax_320x240.mov", "37.mp4", "QuickTime.m4a",
}  # fmt: skip
MANY = 0xFFFFFF00


def info(*arguments, **more):
    return runs.run("clipinfo", *map(os.fspath, arguments), **{"timeout": 300, **more})


def track(number, samples, edits, *more, offsets=()):
    """A text track with `samples` samples and `edits`, each (duration, media time)."""
    text = atom("text", bytes(6), b"\0\1", bytes(43))
    rows = atom("elst", u32(0, len(edits)), *[u32(*edit, 1 << 16) for edit in edits])
    more = (samples, 2, 8, samples, atom("edts", rows), *more)
    return runs.made_track("text", number, 600, text, *more, offsets=offsets)


def limited():
    seconds, size = (80, resource.RLIM_INFINITY) if SANITIZERS else (20, 160 << 20)
    resource.setrlimit(resource.RLIMIT_AS, (size, size))
    resource.setrlimit(resource.RLIMIT_CPU, (seconds, seconds))


class Hostile(runs.RunTest):
    def store(self, *parts):
        path = self.folder / "hostile.mov"
        path.write_bytes(atom("mdat", bytes(64)) + runs.made_movie(*parts))
        return path

    def test_too_many_chapters_take_little_time_and_memory(self):
        def chapters(of):
            return atom("tref", atom("chap", u32(of)))

        places = range(100_000)
        listed = atom("chpl", u32(1 << 24), b"\0", u32(200_000), bytes(9 * 200_000))
        disorder = track(1, len(places), [(5, i) for i in places], chapters(1),
                         offsets=[(1 << 31) + i for i in places])  # fmt: skip
        for name, *parts in (
            ("in one edit", track(1, 9, [(9, 0)], chapters(2)), track(2, MANY, [(MANY, 0)])),
            ("in 100,000 edits", track(1, 9, [(9, 0)], chapters(2)),
             track(2, MANY, [(40000, i) for i in places])),
            ("each edit can show any sample", disorder),
            ("in a list", track(1, 9, [(9, 0)]), atom("udta", listed)),
        ):  # fmt: skip
            with self.subTest(name):
                path = self.store(*parts)
                self.assertIn("too many", info(path, preexec_fn=limited).out)
                (told,) = json.loads(info("-json", path, preexec_fn=limited).out)
                self.assertNotIn("chapters", told)
        path = self.store(disorder)
        if not SANITIZERS:  # with them, this takes a minute
            compared = info("-same", path, "-from", path, preexec_fn=limited)
            self.assertEqual(compared.status, 1)
            self.assertIn("too great disorder", compared.err)

    def test_many_edits_take_little_memory(self):
        path = self.store(track(1, 900, [(1, i % 2 * 100) for i in range(300_000)]))
        (told,) = json.loads(info("-json", path, preexec_fn=limited).out)
        self.assertEqual(len(told["tracks"][0]["edits"]), 300_000)


class EveryMovie(runs.RunTest):
    def test_has_the_facts_that_ffprobe_finds(self):
        told = [each for each in json.loads(info("-json", *MOVIES).out) if "error" not in each]
        runs.in_parallel(runs.description, [each["path"] for each in told])  # they are cached
        compared = 0
        for each in told:
            streams = runs.description(each["path"])["streams"]
            streams = {int(stream.get("id", "0"), 16): stream for stream in streams}
            for track in each["tracks"]:
                stream = streams.get(track["id"], {})
                # ffprobe counts only the samples of the first fragment, and cuts at edits.
                if each["isFragmented"] or "nb_frames" not in stream:
                    continue
                with self.subTest(file=each["file"], track=track["id"]):
                    compared += 1
                    self.assertEqual(track["samples"], int(stream["nb_frames"]))
                    language = stream.get("tags", {}).get("language", track["language"])
                    self.assertEqual(track["language"], language)
                    size = {key: stream.get(key) for key in ("width", "height")}
                    self.assertEqual(track.get("codedSize", size), size)
        self.assertGreater(compared, len(told))

    def test_has_a_fault_only_if_it_is_cut(self):
        for path, entry in zip(MOVIES, json.loads(info("-check", "-json", *MOVIES).out), strict=True):
            is_cut = path.name in NOT_WHOLE or path.parent.name == "truncated"
            with self.subTest(str(path)):
                self.assertEqual(entry["status"] == "fault", is_cut, entry["findings"])


if __name__ == "__main__":
    runs.main()
