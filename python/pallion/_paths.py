"""The files of a call as the OS takes them: paths as bytes (os.fsencode),
``~`` expanded, patterns expanded in sorted order, and file objects read
through a pipe, the way standard input is."""
from __future__ import annotations

import glob
import os
import threading
from typing import Any, Iterator, List, Tuple

from . import _pallion

_texts = _pallion.texts


def _is_path(item: Any) -> bool:
    return isinstance(item, (str, bytes)) or hasattr(item, "__fspath__")


def _is_file_object(item: Any) -> bool:
    return callable(getattr(item, "read", None)) or callable(getattr(item, "fileno", None))


def expand_path(item: Any) -> List[bytes]:
    """One path as bytes: ``~`` expanded, a pattern (* ? [) expanded in sorted
    order, where no file matching it is an error."""
    path = os.fsencode(item)
    if b"\0" in path:
        raise ValueError(_texts["nul_in_path"] % (item,))
    path = os.path.expanduser(path)
    if glob.has_magic(path):
        matches = sorted(glob.glob(path))
        if not matches:
            raise FileNotFoundError(2, _texts["no_match"] % (os.fsdecode(path),), os.fsdecode(path))
        return matches
    return [path]


class _Pump:
    """Feeds a file object's bytes into a pipe on a thread of its own while
    the conversion reads the pipe's other end."""

    def __init__(self, source: Any) -> None:
        self.source = source
        self.read_end, self.write_end = os.pipe()
        self.path = f"/dev/fd/{self.read_end}".encode()
        self.error: BaseException | None = None
        self.thread = threading.Thread(target=self._run, daemon=True)

    def _chunks(self) -> Iterator[bytes]:
        read = getattr(self.source, "read", None)
        if not callable(read):
            descriptor = self.source.fileno()

            def read(size: int) -> bytes:
                return os.read(descriptor, size)
        while True:
            chunk = read(1 << 16)
            if not chunk:
                return
            yield chunk.encode("utf-8", "surrogateescape") if isinstance(chunk, str) else bytes(chunk)

    def _run(self) -> None:
        try:
            for chunk in self._chunks():
                view = memoryview(chunk)
                while view:
                    view = view[os.write(self.write_end, view):]
        except BrokenPipeError:
            pass  # the conversion stopped reading
        except BaseException as error:  # handed to the caller once the conversion is done
            self.error = error
        finally:
            os.close(self.write_end)

    def close(self) -> None:
        os.close(self.read_end)  # a writer still at work gets EPIPE and ends
        self.thread.join()


class Files:
    """The paths of a call, with a pump per file object; a context manager
    that ends the pumps and raises a file object's read error."""

    def __init__(self, files: Any, objects: bool = True) -> None:
        self.paths: List[bytes] = []
        self.pumps: List[_Pump] = []
        items = [files] if _is_path(files) or _is_file_object(files) else files
        if not hasattr(items, "__iter__"):
            raise TypeError(_texts["not_a_file_object"] % (type(files).__name__,))
        for item in items:
            if _is_path(item):
                self.paths.extend(expand_path(item))
            elif objects and _is_file_object(item):
                pump = _Pump(item)
                self.pumps.append(pump)
                self.paths.append(pump.path)
            else:
                text = _texts["not_a_file_object" if objects else "not_a_named_path"]
                raise TypeError(text % (type(item).__name__,))

    def __enter__(self) -> "Files":
        for pump in self.pumps:
            pump.thread.start()
        return self

    def __exit__(self, *exc: Any) -> None:
        for pump in self.pumps:
            pump.close()
        for pump in self.pumps:
            if pump.error is not None and exc[0] is None:
                raise pump.error

    def names(self) -> Tuple[bytes, ...]:
        return tuple(self.paths)

