// PxImageContainer: the images that one grab produced for one tile (one to three exposures, three images
// per exposure), with the grab type, the tile number, the set numbers that go into the file names and the
// directory. The container owns its image records: it destroys them when it is destroyed or emptied, unless
// ownership is handed back with Release. It writes its images one file per image, reads them back (falling
// back to the older file naming when a file is missing) and describes itself as a short XML element.
//
// Strings are 16-bit (UTF-16). Errors of Read and Write are reported through the environment library's
// sendError with a readable text; per-image failures below them are logged by the image file functions.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

#include "pxImage.h"

// Kind of grab a container holds. Valid values are 1..55; the meaning of each value (number of exposures,
// the kind word of each exposure in the file names, the compression used when writing) is carried by the
// container's tables. Values outside 1..55 are held as they are and behave as single-exposure grabs.
enum PxGrabType : int32_t { PX_GRAB_TYPE_FIRST = 1, PX_GRAB_TYPE_LAST = 55 };

class PXIMAGE_API PxImageContainer {
  public:
    // Capacity, in 16-bit characters with the terminating zero, of the file names the container builds.
    static constexpr size_t NameCapacity = 1024;

    // An empty container: tile, set numbers and grab type 0, empty directory, no images. O(1).
    PxImageContainer();
    // A new container assigned from `other` with operator= (deep copies of its images; the directory and
    // OldSetNum2 are not copied). O(pixels).
    PxImageContainer(const PxImageContainer &other);
    // Destroys every image the container holds (as Destruct). O(images).
    ~PxImageContainer();

    // Copies tile, SetNum0..2, OldSetNum0, OldSetNum1 and the grab type (not OldSetNum2, not the directory),
    // then appends a deep copy (same pixel type, every pixel of the image proper, no border) of each of
    // other's images, null slots as null, to the images already held. O(pixels). If a copy cannot be made,
    // the failure is logged and nothing changes. Assigning a container to itself changes nothing.
    PxImageContainer &operator=(const PxImageContainer &other);
    // Takes other's images without copying: copies the same fields as operator=, destroys its own images,
    // then appends other's pointers. Other still lists them until its owner calls Release on it, which
    // leaves this container as the only owner. O(images). Transferring a container to itself changes nothing.
    PxImageContainer &operator<<(PxImageContainer &other);

    // Appends an image pointer (null allowed); the container owns the image from then on. O(1).
    PxImageContainer &Add(tag_pxImage *image);
    // Destroys the image in slot `index` and stores `image` there (an image that stays in another slot, or is
    // the one stored again, is not destroyed). O(images). False, with an invalid-argument error and nothing
    // changed, when index is not a slot.
    bool Set(size_t index, tag_pxImage *image);
    // Destroys all images, then appends the three pointers (images among them are kept). O(images).
    PxImageContainer &Set(tag_pxImage *image0, tag_pxImage *image1, tag_pxImage *image2);
    // Destroys all images, then appends `count` pointers from `images` (images among them are kept).
    // O(images). False, with an invalid-argument error and nothing changed, for a null array with count > 0.
    bool Set(tag_pxImage *const *images, size_t count);
    // Destroys every image with pxImageDestruct (each distinct record once) and empties the slot list.
    // O(images).
    PxImageContainer &Destruct();
    // Empties the slot list without destroying the images: ownership goes back to the caller. O(1).
    PxImageContainer &Release();

    // The image pointer in a slot (may be null); null for an index past the last slot. O(1).
    tag_pxImage *Get(size_t index);
    const tag_pxImage *Get(size_t index) const;
    tag_pxImage *operator[](size_t index) { return Get(index); }
    const tag_pxImage *operator[](size_t index) const { return Get(index); }
    // Number of slots (null slots included). O(1).
    size_t GetCount() const { return images.size(); }

    // Directory of the image files (may be empty). O(length).
    const std::u16string &GetDir() const { return directory; }
    PxImageContainer &SetDir(const std::u16string &dir);
    // Grab type. O(1).
    PxGrabType GetType() const { return grabType; }
    PxImageContainer &SetType(PxGrabType type);
    // Tile number, which is also the container's id. O(1).
    uint32_t GetId() const { return tile; }
    PxImageContainer &SetID(uint32_t id);

    // Sets the grab type and the set numbers of the three exposures; when num2 is 0 and the grab type is
    // triple exposure (IsTripleExposure), SetNum2 becomes num0 + 1 instead. O(1).
    PxImageContainer &SetPrefix(PxGrabType type, uint32_t num0, uint32_t num1, uint32_t num2);
    // Sets the tile, then as SetPrefix above. O(1).
    PxImageContainer &SetPrefix(uint32_t tileNumber, PxGrabType type, uint32_t num0, uint32_t num1,
                                uint32_t num2);
    // Sets the set numbers of the older naming (OldSetNum2 = num0 + 1) and the grab type. O(1).
    PxImageContainer &SetPrefixOld(PxGrabType type, uint32_t num0, uint32_t num1);
    // Sets the tile, then as SetPrefixOld above. O(1).
    PxImageContainer &SetPrefixOld(uint32_t tileNumber, PxGrabType type, uint32_t num0, uint32_t num1);

    // True for the double-exposure grab types 5, 6, 13, 14, 15, 17, 18 and 38 (not 8, which has two
    // exposures too). O(1).
    bool IsDoubleExposure() const;
    // True for the triple-exposure grab types 23..27 and 39 (not 55, which has three exposures too). O(1).
    bool IsTripleExposure() const;
    // Sizes the slot list to the grab type's image count: new slots are null, images in dropped slots are
    // destroyed. O(images).
    PxImageContainer &initForGrab();

    // Writes every non-null image to its file (current naming) in `dir`, or in the container's directory when
    // dir is null. FLS images go CSHORT-compressed, others SHORT12-packed, each falling back to the plain
    // type, as the two settings say. Note that compressing changes the pixels in memory. Every file is
    // flushed and closed with its result checked (pxImageWriteChecked): a file that did not reach the disk
    // (full disk, file-size limit) is a failed write, removed before the next encoding is tried. O(pixels).
    // True on success and for a container without slots (which touches nothing); false, after sendError,
    // when the directory is missing or an image cannot be written (files written before stay on disk).
    bool Write(const char16_t *dir = nullptr);
    // Destroys the current images, then reads the grab type's images from `dir` (or the container's
    // directory when dir is null), each under its current name, or its older name when the current file is
    // missing. O(pixels). False, after sendError, when the directory is missing or a file cannot be read
    // (the images read before stay in the container).
    bool Read(const char16_t *dir = nullptr);

    // The XML form: one element "PxImageContainer" with the attributes Tile, ImgGrabType, SetNum0, SetNum1,
    // SetNum2 and Path. The images are not part of it. O(length). An empty text, with an invalid-argument
    // report, when the directory cannot be written as XML (a null character or an unpaired surrogate).
    std::u16string toXMLString() const;
    // Applies an XML form: Tile, the grab type and set numbers (through SetPrefix) and Path. A missing
    // attribute reads as 0 (or an empty path); a malformed document or one without the element changes
    // nothing. Returns 0 in every case; it is not a status. O(length).
    int fromXMLString(const std::u16string &xml);

    // Forgets the one-time reading of the settings "pxImageContainerCompressFLS" and
    // "pxImageContainerCompressCLRandTXT": the next Read or Write reads them again. O(1).
    static void freeInstance();

  protected:
    // Number of exposures of a grab type: 2, 3, or 1 for all other values. O(1).
    static int exposures(PxGrabType type);
    // Kind word of exposure e (0..2) in the current file naming ("FLS", "PRJ", "LGT", "BRT", "LIN", "IMG").
    static const char16_t *kindWord(PxGrabType type, int e);
    // Kind word of exposure e in the older file naming ("FLS", "PRJ", "LGT", "IMG").
    static const char16_t *oldKindWord(PxGrabType type, int e);
    // Compression class of exposure e: FLS 1, PRJ 2, LGT 4, BRT 5, LIN 6, IMG 0. Grab types outside 1..55
    // and 4, 7, 19, 20, 22, 40 log "Invalid type of image container. Type=%d" and give 0.
    static int compressionClass(PxGrabType type, int e);

    // Number of images of the grab: 3 x exposures. O(1).
    int numImages() const;
    // Reads the two settings once (until freeInstance) and sets the naming functions' separator to '\'.
    void Initialize();
    // Directory name: `dir` (the container's directory when null), with the tile as a further path part when
    // mode is 1. O(length). False when the name does not fit `capacity` characters.
    bool MakeDirName(int mode, const char16_t *dir, char16_t *output, size_t capacity) const;
    // File name of image `index` (exposure index / 3, position index % 3) in `dir`, current naming; the
    // output holds NameCapacity characters. O(length). False when the name does not fit.
    bool MakeFullImageName(const char16_t *dir, size_t index, char16_t *output) const;
    // As MakeFullImageName with the older kind words and set numbers.
    bool MakeFullOldImageName(const char16_t *dir, size_t index, char16_t *output) const;

    uint32_t tile;       // tile number, also the container's id
    uint32_t SetNum0;    // set number in the file names of exposure 0
    uint32_t SetNum1;    // ... of exposure 1
    uint32_t SetNum2;    // ... of exposure 2
    uint32_t OldSetNum0; // set numbers of the older naming
    uint32_t OldSetNum1;
    uint32_t OldSetNum2;
    PxGrabType grabType;               // kind of grab
    std::u16string directory;          // directory of the image files; may be empty
    std::vector<tag_pxImage *> images; // index 3 x exposure + position; a slot may be null

  private:
    void destroyImagesExcept(tag_pxImage *const *keep, size_t keepCount);
    const char16_t *effectiveDir(const char16_t *dir) const;
    bool writeImage(const std::u16string &name, tag_pxImage *image, int compression);
};
