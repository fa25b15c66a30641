"""The images of one grab: grab type, tile, set numbers, directory, file naming, reading and writing."""

from . import _pximage

__all__ = ["Container"]


class Container:
    """The images one grab produced for one tile (one to three exposures, three images per exposure).

    ``Container(grab_type, tile=0, sets=(0, 0, 0), directory="")`` sets up the grab (grab types 1..55;
    a triple-exposure grab with a third set number of 0 uses the first + 1) and sizes it to the grab's
    image count, all slots empty. ``len(c)`` is the number of slots; ``c[i]`` is a copy of image i as an
    array (None for an empty slot); ``c[i] = array`` stores a copy (``c.set(i, array, header)`` with
    metadata). ``kinds`` and ``file_names`` tell the kind word and the file of every slot as the library
    computes them (``old_kinds``/``old_file_names``: the older naming that reading falls back to).

    Writing compresses as the library's settings say (FLS images CSHORT, others SHORT12, each falling back
    to plain); reading takes every image of the grab type. Errors raise FileError for missing directories
    and files, Error otherwise; warnings (a file read under its older name) are LibraryWarnings.
    """

    def __init__(self, grab_type, tile=0, sets=(0, 0, 0), directory=""):
        self._c = _pximage._Container(int(grab_type), int(tile), [int(s) for s in sets], directory)

    def read(self, directory=None):
        """Reads the grab's images from directory (default: the container's), replacing those held."""
        self._c.read(directory)
        return self

    def write(self, directory=None):
        """Writes every image held to its file in directory (default: the container's)."""
        self._c.write(directory)
        return self

    def to_xml(self):
        """The XML form: one PxImageContainer element with Tile, ImgGrabType, SetNum0..2 and Path."""
        return self._c.to_xml()

    def from_xml(self, xml):
        """Applies an XML form (tile, grab type, set numbers, path); a malformed one changes nothing. The
        slots are not resized: call :meth:`read` or :meth:`init_for_grab`. Returns the container."""
        self._c.from_xml(xml)
        return self

    def init_for_grab(self):
        """Sizes the slots to the grab type's image count (images in dropped slots are destroyed)."""
        self._c.init_for_grab()
        return self

    @staticmethod
    def reload_settings():
        """Makes the next read or write take the settings "pxImageContainerCompressFLS" and
        "pxImageContainerCompressCLRandTXT" again (they are read once per process otherwise)."""
        _pximage._Container.reload_settings()

    def __len__(self):
        return len(self._c)

    def __getitem__(self, index):
        return self._c.item(index)

    def __setitem__(self, index, array):
        self._c.store(index, array, None)

    def set(self, index, array, header=None):
        """Stores a copy of array (with the header fields of the dict, as imwrite takes them) in a slot;
        None empties it."""
        self._c.store(index, array, header)

    def header(self, index):
        """The header fields of the image in a slot (None for an empty slot)."""
        return self._c.header(index)

    @property
    def kinds(self):
        """Kind word of every slot ("FLS", "PRJ", "LGT", "BRT", "LIN", "IMG")."""
        return self._c.kinds(False)

    @property
    def old_kinds(self):
        """Kind word of every slot in the older naming."""
        return self._c.kinds(True)

    @property
    def file_names(self):
        """File name of every slot, in the container's directory ('/' separators)."""
        return self._c.file_names(False)

    @property
    def old_file_names(self):
        """Older file name of every slot, which reading falls back to when the current file is missing."""
        return self._c.file_names(True)

    grab_type = property(lambda self: self._c.grab_type, doc="Grab type (1..55).")
    tile = property(lambda self: self._c.tile, doc="Tile number (the container's id).")
    sets = property(lambda self: tuple(self._c.sets), doc="Set numbers of the three exposures.")
    directory = property(lambda self: self._c.directory, doc="Directory of the image files.")
    is_double_exposure = property(lambda self: self._c.is_double_exposure, doc="A double-exposure grab type.")
    is_triple_exposure = property(lambda self: self._c.is_triple_exposure, doc="A triple-exposure grab type.")

    def __repr__(self):
        return (f"<pximage.Container grab_type={self.grab_type} tile={self.tile} sets={self.sets} "
                f"directory={self.directory!r} slots={len(self)}>")
