"""Other programs start slowly, and after most changes they would read the same files again. So the
folder build/kept has their answers, and the clips that they make."""

import hashlib
import os
import pathlib
import shutil
import tempfile
import threading

FOLDER = pathlib.Path(__file__).resolve().parent.parent.parent / "build" / "kept"
try:
    FOLDER.mkdir(parents=True, exist_ok=True)
    tempfile.TemporaryFile(dir=FOLDER).close()
except OSError:  # for another user or from a medium that cannot be written, nothing is kept
    temporary = tempfile.TemporaryDirectory(prefix="reelwork-")
    FOLDER = pathlib.Path(temporary.name)


def kept(command, make):
    """The path of the result of a command. Its name is a hash of the command, of the files that the
    command names, and of the date of the program. `make` writes it if it is missing; if that fails,
    nothing is kept."""
    key = hashlib.sha256(str(os.stat(shutil.which(command[0]) or "").st_mtime_ns).encode())
    for word in command:
        is_file = os.path.isfile(word)
        key.update(os.fsencode(os.path.basename(word) if is_file else word) + b"\0")
        key.update(pathlib.Path(word).read_bytes() if is_file else b"")
    path = FOLDER / (key.hexdigest() + pathlib.Path(command[-1]).suffix)
    if not path.exists():
        fresh = path.with_stem(f"{path.stem}-{os.getpid()}-{threading.get_ident()}")
        make(fresh)
        fresh.rename(path)
    return path
