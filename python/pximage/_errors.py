"""Exceptions and warnings of pximage, built from the library's log records."""

import re
import warnings

__all__ = ["Error", "FileError", "ArgumentError", "AllocationError", "LibraryWarning"]

_FILE_CODES = {0xC43D0031, 0xC41A0001, 0xC41A0002, 0xC41A0003, 0xC41A001C, 0xC41A001E, 0xC41A001F}
_ARGUMENT_CODES = {0xC43D0003, 0xC41A0004, 0xC41A0005, 0xC41A0017} | set(range(0xC41A000C, 0xC41A0010)) | set(
    range(0xC41A0018, 0xC41A001C))
_ALLOCATION_CODES = {0xC43D0310}
_ERRNO = re.compile(r"errno (\d+) \(([^)]*)\)")


class Error(Exception):
    """A failure of the library or of a call into it.

    Attributes:
        message:  the message of the library's log record that describes the failure (or the package's own).
        code:     the library's error code (e.g. 0xC43D0031), or None when the failure carried none.
        module:   the library module that reported it (e.g. "pxImageFile"), "pximage" for the package's
                  own checks, or None.
        function: the library function that failed, or None.
        records:  every log record of the failed call, as (kind, level, line, module, date, code, text).
    """

    def __init__(self, message, code=None, module=None, function=None, records=()):
        super().__init__(message)
        self.message = message
        self.code = code
        self.module = module
        self.function = function
        self.records = list(records)

    def __str__(self):
        where = f" [{self.module} 0x{self.code:08X}]" if self.code is not None else ""
        return f"{self.message}{where}"


class FileError(Error, OSError):
    """A file could not be opened, read or written; also an OSError (errno and strerror when known)."""


class ArgumentError(Error, ValueError):
    """An argument the library or the package refuses (type, size, mode, region); also a ValueError."""


class AllocationError(Error, MemoryError):
    """A scratch image could not be allocated; also a MemoryError."""


class LibraryWarning(UserWarning):
    """A warning the library logged during a call that succeeded (e.g. a header value corrected on writing).

    Attributes: message, code (None for most warnings), module, level (3 info, 4 warning, 5 error).
    """

    def __init__(self, message, code=None, module=None, level=4):
        super().__init__(message)
        self.message = message
        self.code = code
        self.module = module
        self.level = level


def _class_of(code):
    if code in _FILE_CODES:
        return FileError
    if code in _ARGUMENT_CODES:
        return ArgumentError
    if code in _ALLOCATION_CODES:
        return AllocationError
    return Error


def _with_errno(error, texts):
    for text in texts:
        found = _ERRNO.search(text)
        if found:
            error.errno = int(found.group(1))
            error.strerror = found.group(2)
            break
    return error


def _from_library(function, code, module, message, records):
    """Called by the extension: the exception for a failed library call."""
    error = _class_of(code)(message, code, module, function, records)
    if isinstance(error, FileError):
        _with_errno(error, [message] + [r[6] for r in records])
    return error


def _from_extension(kind, message):
    """Called by the extension: the exception for a check of its own."""
    cls = {"argument": ArgumentError, "file": FileError}.get(kind, Error)
    error = cls(message, None, "pximage")
    if cls is FileError:
        _with_errno(error, [message])
    return error


def _warn(text, code, module, level):
    """Called by the extension: issues one warning record of a successful call."""
    warnings.warn(LibraryWarning(text, code, module, level), stacklevel=3)
