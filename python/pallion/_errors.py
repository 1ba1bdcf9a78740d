"""The exceptions of a conversion, and the one place where a conversion's
outcome becomes one of them."""


class ConversionError(Exception):
    """A conversion stopped.  The message is the library's text followed by
    the file, line, text and token where it stopped, and hints where they fit.

    .grid     what was converted until then (the flushed blocks)
    .file     the file where it stopped, or None when the failure is not about a line
    .line     that line's number in the file (1-based), or None
    .column   the failing token's column, or None
    .token    that token, or None
    .hints    hints, the likeliest cause first
    """

    def __init__(self, message, grid=None, report=None):
        super().__init__(message)
        self.grid = grid
        report = report or {}
        self.file = report.get("file") or None
        self.line = report.get("line") if self.file else None
        self.column = report.get("column")
        self.token = report.get("token") if self.column is not None else None
        self.hints = list(report.get("hints", ()))

    def __reduce__(self):
        # Travels between processes (a Dask worker's failure) with its context
        # but without .grid, whose memory stays where it was converted.
        state = {name: value for name, value in self.__dict__.items() if name != "grid"}
        return type(self), (str(self),), state


class TokenError(ConversionError, ValueError):
    """A token that is no number of its column's type."""


class TokenOverflowError(ConversionError, OverflowError):
    """A token out of range for its column's type."""


_KINDS = {"failure": ConversionError, "value": TokenError, "overflow": TokenOverflowError,
          "error": ConversionError}


def raise_for(outcome, grid):
    raised = outcome["raised"]
    if raised is not None:
        # Raised by the progress callable or by a signal handler (Ctrl-C):
        # the same exception, with what was converted until then.
        try:
            raised.grid = grid
        except AttributeError:
            pass
        raise raised
    if outcome["kind"] == "memory":
        raise MemoryError(outcome["message"])
    report = outcome["report"]
    message = outcome["message"].strip("\n")
    if report and report["text"]:
        message += "\n" + report["text"].rstrip("\n")
    raise _KINDS[outcome["kind"]](message, grid, report)
