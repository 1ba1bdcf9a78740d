"""The exceptions of a conversion, and the one place where a conversion's
outcome becomes one of them: the class comes from the failure's kind."""
from __future__ import annotations

import errno as _errno
import os
from typing import Any, Dict, List, Optional, Type


class ConversionError(Exception):
    """A conversion stopped.  The message is the library's text followed by
    the file, line, text and token where it stopped, and hints where they fit.

    .grid     what was converted until then (the flushed blocks)
    .file     the file where it stopped, or None when the failure is not about a file
    .line     that line's number in the file (1-based), or None
    .column   the failing token's column, or None
    .token    that token, or None
    .hints    hints, the likeliest cause first
    .kind     the failure's kind ("token_invalid", "cannot_open", ...), "" where none is known
    """

    grid: Any = None
    file: Optional[str] = None
    line: Optional[int] = None
    column: Optional[int] = None
    token: Optional[str] = None
    kind: str = ""

    def __init__(self, message: str, grid: Any = None, outcome: Any = None) -> None:
        super().__init__(message)
        self._place(grid, outcome)

    def _place(self, grid: Any, outcome: Any) -> None:
        self.grid = grid
        self.hints: List[str] = list(outcome.hints) if outcome is not None else []
        if outcome is not None:
            self.kind = outcome.kind
            self.file, self.line = outcome.file, outcome.line
            self.column, self.token = outcome.column, outcome.token

    def __reduce__(self) -> Any:
        # Travels between processes (a Dask worker's failure) with its context
        # but without .grid, whose memory stays where it was converted.
        state = {name: value for name, value in self.__dict__.items() if name != "grid"}
        if isinstance(self, OSError):
            args: Any = (self.errno, self.strerror, self.filename)
        else:
            args = self.args
        return _rebuild, (type(self), args, state)


def _rebuild(cls: Type[BaseException], args: Any, state: Dict[str, Any]) -> BaseException:
    error = cls.__new__(cls, *args)
    if isinstance(error, OSError):
        OSError.__init__(error, *args)
    else:
        BaseException.__init__(error, *args)
    error.__dict__.update(state)
    return error


class OutputError(ConversionError):
    """An output file that could not be written: the message names it and says
    why (its folder, the disk, a value the format cannot hold).  Nothing is
    left under its name."""


class ArgumentsError(ConversionError, ValueError):
    """Options that cannot be used: a wrong parse string, a column not among the names."""


class TokenError(ConversionError, ValueError):
    """A token that is no number of its column's type."""


class TokenOverflowError(ConversionError, OverflowError):
    """A token out of range for its column's type."""


class _OpenError(ConversionError, OSError):
    """A file that could not be opened, with errno and filename."""

    def __init__(self, message: str, grid: Any = None, outcome: Any = None) -> None:
        error = outcome.error if outcome is not None else 0
        name = outcome.file if outcome is not None else None
        OSError.__init__(self, error, os.strerror(error) if error else message, name)
        self._place(grid, outcome)
        self.message = message

    def __str__(self) -> str:
        return OSError.__str__(self) + "\n" + self.message


class ConversionFileNotFoundError(_OpenError, FileNotFoundError):
    """A file that does not exist."""


class ConversionPermissionError(_OpenError, PermissionError):
    """A file that may not be read."""


class ConversionIsADirectoryError(_OpenError, IsADirectoryError):
    """A folder given as a file."""


class ConversionOpenError(_OpenError):
    """A file that could not be opened for another reason."""


_BY_ERRNO: Dict[int, Type[_OpenError]] = {
    _errno.ENOENT: ConversionFileNotFoundError, _errno.ENOTDIR: ConversionFileNotFoundError,
    _errno.EACCES: ConversionPermissionError, _errno.EPERM: ConversionPermissionError,
    _errno.EISDIR: ConversionIsADirectoryError}

_BY_KIND: Dict[str, Type[ConversionError]] = {
    "arguments": ArgumentsError, "token_invalid": TokenError, "token_out_of_range": TokenOverflowError}


def raise_for(outcome: Any, grid: Any) -> None:
    """Raises what ended `outcome`, with `grid` as .grid; returns where it converted."""
    if outcome.end == "converted":
        return
    if outcome.raised is not None:
        # Raised by the progress callable or by a signal handler (Ctrl-C):
        # the same exception, with what was converted until then.
        try:
            outcome.raised.grid = grid
        except AttributeError:
            pass
        raise outcome.raised
    if outcome.end == "memory":
        raise MemoryError(outcome.message)
    if outcome.end == "unwritten":
        raise OutputError(outcome.message.strip("\n"), grid, outcome)
    message = outcome.message.strip("\n")
    if outcome.context:
        message += "\n" + outcome.context.rstrip("\n")
    if outcome.kind == "cannot_open":
        raise _BY_ERRNO.get(outcome.error, ConversionOpenError)(message, grid, outcome)
    raise _BY_KIND.get(outcome.kind, ConversionError)(message, grid, outcome)
