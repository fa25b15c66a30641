// PxImageContainer: the images of one grab for one tile, their file names, reading and writing them one
// file per image, and the container's XML form.
#include "PxImageContainer.h"

#include <algorithm>
#include <cstdlib>
#include <string>

#include "CMarkupSTL.h"
#include "pxEnvPath.h"
#include "image/pxImageLog.h"

namespace {

const char *const MODULE = "PxImageContainer";

constexpr uint32_t ERR_WRITE_DIRECTORY_MISSING = 0xC41A0001u;
constexpr uint32_t ERR_WRITE_FLS_FAILED = 0xC41A0002u;
constexpr uint32_t ERR_READ_FILE_FAILED = 0xC41A0003u;
constexpr uint32_t ERR_READ_DIRECTORY_MISSING = 0xC41A001Cu;
constexpr uint32_t ERR_WRITE_SHORT12_FAILED = 0xC41A001Eu;
constexpr uint32_t ERR_WRITE_PLAIN_FAILED = 0xC41A001Fu;

// Compression classes of the kind words.
constexpr int CLASS_IMG = 0;
constexpr int CLASS_FLS = 1;

// Settings, read once on the first Read or Write until freeInstance.
bool g_initialized = false;
pxBool g_compressFLS = 1;
pxBool g_compressCLRandTXT = 1;

// Kind words of the file names.
enum Kind { IMG, FLS, PRJ, LGT, BRT, LIN };

const char16_t *kindText(Kind kind) {
    static const char16_t *const TEXT[] = {u"IMG", u"FLS", u"PRJ", u"LGT", u"BRT", u"LIN"};
    return TEXT[kind];
}

// Compression class of a kind word: FLS 1, PRJ 2, LGT 4, BRT 5, LIN 6, IMG 0.
int kindClass(Kind kind) {
    static const int CLASS[] = {CLASS_IMG, CLASS_FLS, 2, 4, 5, 6};
    return CLASS[kind];
}

bool inRange(int32_t value, int32_t low, int32_t high) {
    return value >= low && value <= high;
}

// Kind word of exposure e in the current naming; IMG for every case not listed and for types outside 1..55.
Kind currentKind(int32_t t, int e) {
    if (t == 1)
        return FLS;
    if (t == 2 || t == 41)
        return PRJ;
    if (t == 3 || t == 21)
        return LGT;
    if (t == 9 || t == 10 || t == 11 || t == 16 || inRange(t, 28, 36) || inRange(t, 42, 53))
        return LIN;
    if (t == 12 || t == 54)
        return BRT;
    static const struct {
        int32_t first, last;
        Kind kinds[3];
    } MULTI[] = {
        {5, 5, {FLS, PRJ, IMG}},   {6, 6, {FLS, LGT, IMG}},   {8, 8, {PRJ, LGT, IMG}},
        {13, 15, {FLS, LIN, IMG}}, {17, 17, {FLS, LIN, IMG}}, {18, 18, {FLS, BRT, IMG}},
        {23, 23, {FLS, PRJ, FLS}}, {24, 26, {FLS, LIN, FLS}}, {27, 27, {FLS, BRT, FLS}},
        {38, 38, {LGT, PRJ, IMG}}, {39, 39, {FLS, LGT, FLS}}, {55, 55, {FLS, PRJ, LGT}},
    };
    for (const auto &row : MULTI)
        if (inRange(t, row.first, row.last))
            return inRange(e, 0, 2) ? row.kinds[e] : IMG;
    return IMG;
}

// Kind word of exposure e in the older naming.
Kind olderKind(int32_t t, int e) {
    if (t == 1)
        return FLS;
    if (t == 2 || inRange(t, 9, 12) || t == 16 || inRange(t, 28, 36) || inRange(t, 41, 54))
        return PRJ;
    if (t == 3 || t == 21)
        return LGT;
    static const struct {
        int32_t first, last;
        Kind kinds[3];
    } MULTI[] = {
        {5, 5, {FLS, PRJ, IMG}},   {13, 15, {FLS, PRJ, IMG}}, {17, 18, {FLS, PRJ, IMG}},
        {6, 6, {FLS, LGT, IMG}},   {8, 8, {PRJ, LGT, IMG}},   {23, 27, {FLS, PRJ, FLS}},
        {38, 38, {LGT, PRJ, IMG}}, {39, 39, {FLS, LGT, FLS}}, {55, 55, {FLS, PRJ, LGT}},
    };
    for (const auto &row : MULTI)
        if (inRange(t, row.first, row.last))
            return inRange(e, 0, 2) ? row.kinds[e] : IMG;
    return IMG;
}

// Grab types whose compression class is refused with a log line (with the types outside 1..55).
bool isRefusedCompressionType(int32_t t) {
    return !inRange(t, 1, 55) || t == 4 || t == 7 || t == 19 || t == 20 || t == 22 || t == 40;
}

const uint16_t *fileName(const std::u16string &name) {
    return reinterpret_cast<const uint16_t *>(name.c_str());
}

// Decimal text-to-int conversion: leading white space, an optional sign and the digits up to the first
// other character; no digits give 0. The value is taken modulo 2^32.
uint32_t decimalToInt(const std::u16string &text) {
    const std::string digits = PxTextToUtf8(text.c_str());
    return static_cast<uint32_t>(std::strtoll(digits.c_str(), nullptr, 10));
}

std::u16string decimalText(uint32_t value) {
    const std::string digits = std::to_string(value);
    return std::u16string(digits.begin(), digits.end());
}

// The tile as the directory naming prints it, a signed decimal ("%d"): tiles above 2^31 - 1 come out
// negative.
std::u16string signedDecimalText(uint32_t value) {
    const std::string digits = std::to_string(static_cast<int32_t>(value));
    return std::u16string(digits.begin(), digits.end());
}

} // namespace

// ---- Construction and ownership ---------------------------------------------------------------------------

PxImageContainer::PxImageContainer()
    : tile(0), SetNum0(0), SetNum1(0), SetNum2(0), OldSetNum0(0), OldSetNum1(0), OldSetNum2(0),
      grabType(static_cast<PxGrabType>(0)) {}

PxImageContainer::PxImageContainer(const PxImageContainer &other) : PxImageContainer() {
    *this = other;
}

PxImageContainer::~PxImageContainer() {
    Destruct();
}

PxImageContainer &PxImageContainer::operator=(const PxImageContainer &other) {
    if (&other == this)
        return *this;
    std::vector<tag_pxImage *> copies;
    copies.reserve(other.images.size());
    for (const tag_pxImage *image : other.images) {
        // Copies are made without border: the conversion copy moves `width` pixels per row from the left
        // margin on, so a copy that kept a margin would miss the last columns of the image.
        tag_pxImage *copy = nullptr;
        if (image && !pxImageConvertCopy(image, 0, 0, &copy)) {
            PX_TRACE(MODULE);
            for (tag_pxImage *made : copies)
                pxImageDestruct(&made);
            return *this;
        }
        copies.push_back(copy);
    }
    tile = other.tile;
    SetNum0 = other.SetNum0;
    SetNum1 = other.SetNum1;
    SetNum2 = other.SetNum2;
    OldSetNum0 = other.OldSetNum0;
    OldSetNum1 = other.OldSetNum1;
    grabType = other.grabType;
    images.insert(images.end(), copies.begin(), copies.end());
    return *this;
}

PxImageContainer &PxImageContainer::operator<<(PxImageContainer &other) {
    if (&other == this)
        return *this;
    tile = other.tile;
    SetNum0 = other.SetNum0;
    SetNum1 = other.SetNum1;
    SetNum2 = other.SetNum2;
    OldSetNum0 = other.OldSetNum0;
    OldSetNum1 = other.OldSetNum1;
    grabType = other.grabType;
    destroyImagesExcept(other.images.data(), other.images.size());
    images.insert(images.end(), other.images.begin(), other.images.end());
    return *this;
}

PxImageContainer &PxImageContainer::Add(tag_pxImage *image) {
    images.push_back(image);
    return *this;
}

bool PxImageContainer::Set(size_t index, tag_pxImage *image) {
    if (index >= images.size()) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Slot %zu of %zu does not exist", index, images.size());
        return false;
    }
    tag_pxImage *old = images[index];
    images[index] = image;
    if (old != image && std::find(images.begin(), images.end(), old) == images.end())
        pxImageDestruct(&old);
    return true;
}

PxImageContainer &PxImageContainer::Set(tag_pxImage *image0, tag_pxImage *image1, tag_pxImage *image2) {
    tag_pxImage *const three[] = {image0, image1, image2};
    Set(three, 3);
    return *this;
}

bool PxImageContainer::Set(tag_pxImage *const *list, size_t count) {
    if (!list && count > 0) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "No image list for %zu images", count);
        return false;
    }
    destroyImagesExcept(list, count);
    images.insert(images.end(), list, list + count);
    return true;
}

PxImageContainer &PxImageContainer::Destruct() {
    destroyImagesExcept(nullptr, 0);
    return *this;
}

PxImageContainer &PxImageContainer::Release() {
    images.clear();
    return *this;
}

// Destroys each distinct image of the slots once, except those listed in keep, and empties the slots.
void PxImageContainer::destroyImagesExcept(tag_pxImage *const *keep, size_t keepCount) {
    std::vector<tag_pxImage *> held;
    held.swap(images);
    for (size_t i = 0; i < held.size(); ++i) {
        tag_pxImage *image = held[i];
        const bool kept = keep && std::find(keep, keep + keepCount, image) != keep + keepCount;
        const bool seen = std::find(held.begin(), held.begin() + i, image) != held.begin() + i;
        if (!kept && !seen)
            pxImageDestruct(&image);
    }
}

tag_pxImage *PxImageContainer::Get(size_t index) {
    return index < images.size() ? images[index] : nullptr;
}

const tag_pxImage *PxImageContainer::Get(size_t index) const {
    return index < images.size() ? images[index] : nullptr;
}

// ---- Fields ---------------------------------------------------------------------------------------------

PxImageContainer &PxImageContainer::SetDir(const std::u16string &dir) {
    directory = dir;
    return *this;
}

PxImageContainer &PxImageContainer::SetType(PxGrabType type) {
    grabType = type;
    return *this;
}

PxImageContainer &PxImageContainer::SetID(uint32_t id) {
    tile = id;
    return *this;
}

PxImageContainer &PxImageContainer::SetPrefix(PxGrabType type, uint32_t num0, uint32_t num1, uint32_t num2) {
    grabType = type;
    SetNum0 = num0;
    SetNum1 = num1;
    SetNum2 = (num2 == 0 && IsTripleExposure()) ? num0 + 1 : num2;
    return *this;
}

PxImageContainer &PxImageContainer::SetPrefix(uint32_t tileNumber, PxGrabType type, uint32_t num0,
                                              uint32_t num1, uint32_t num2) {
    tile = tileNumber;
    return SetPrefix(type, num0, num1, num2);
}

PxImageContainer &PxImageContainer::SetPrefixOld(PxGrabType type, uint32_t num0, uint32_t num1) {
    OldSetNum0 = num0;
    OldSetNum1 = num1;
    OldSetNum2 = num0 + 1;
    grabType = type;
    return *this;
}

PxImageContainer &PxImageContainer::SetPrefixOld(uint32_t tileNumber, PxGrabType type, uint32_t num0,
                                                 uint32_t num1) {
    tile = tileNumber;
    return SetPrefixOld(type, num0, num1);
}

// ---- Grab-type tables -----------------------------------------------------------------------------------

bool PxImageContainer::IsDoubleExposure() const {
    const int32_t t = grabType;
    return t == 5 || t == 6 || inRange(t, 13, 15) || t == 17 || t == 18 || t == 38;
}

bool PxImageContainer::IsTripleExposure() const {
    const int32_t t = grabType;
    return inRange(t, 23, 27) || t == 39;
}

int PxImageContainer::exposures(PxGrabType type) {
    const int32_t t = type;
    if (t == 5 || t == 6 || t == 8 || inRange(t, 13, 15) || t == 17 || t == 18 || t == 38)
        return 2;
    if (inRange(t, 23, 27) || t == 39 || t == 55)
        return 3;
    return 1;
}

const char16_t *PxImageContainer::kindWord(PxGrabType type, int e) {
    return kindText(currentKind(type, e));
}

const char16_t *PxImageContainer::oldKindWord(PxGrabType type, int e) {
    return kindText(olderKind(type, e));
}

int PxImageContainer::compressionClass(PxGrabType type, int e) {
    if (isRefusedCompressionType(type)) {
        PX_WARN(5, MODULE, "Invalid type of image container. Type=%d", static_cast<int>(type));
        return CLASS_IMG;
    }
    return kindClass(currentKind(type, e));
}

int PxImageContainer::numImages() const {
    return 3 * exposures(grabType);
}

PxImageContainer &PxImageContainer::initForGrab() {
    const size_t count = static_cast<size_t>(numImages());
    if (count < images.size()) {
        std::vector<tag_pxImage *> kept(images.begin(), images.begin() + count);
        destroyImagesExcept(kept.data(), kept.size());
        images = kept;
    }
    images.resize(count, nullptr);
    return *this;
}

// ---- Settings and naming --------------------------------------------------------------------------------

void PxImageContainer::Initialize() {
    if (g_initialized)
        return;
    pxEnvGetParam2pxBool("pxImageContainerCompressFLS", 1, &g_compressFLS);
    pxEnvGetParam2pxBool("pxImageContainerCompressCLRandTXT", 1, &g_compressCLRandTXT);
    PxFileName::SetSeparator(u'\\');
    g_initialized = true;
}

void PxImageContainer::freeInstance() {
    g_initialized = false;
}

bool PxImageContainer::MakeDirName(int mode, const char16_t *dir, char16_t *output, size_t capacity) const {
    const char16_t *base = dir ? dir : directory.c_str();
    const std::u16string tilePart = signedDecimalText(tile);
    return PxMakePath(base, mode == 1 ? tilePart.c_str() : nullptr, output, capacity);
}

bool PxImageContainer::MakeFullImageName(const char16_t *dir, size_t index, char16_t *output) const {
    const int e = static_cast<int>(index / 3);
    const uint32_t setNumbers[] = {SetNum0, SetNum1, SetNum2};
    return PxFileName::ImageForTile(dir, tile, kindWord(grabType, e), e < 3 ? setNumbers[e] : 0,
                                    static_cast<uint32_t>(index % 3), 0, output, NameCapacity);
}

bool PxImageContainer::MakeFullOldImageName(const char16_t *dir, size_t index, char16_t *output) const {
    const int e = static_cast<int>(index / 3);
    const uint32_t setNumbers[] = {OldSetNum0, OldSetNum1, OldSetNum2};
    return PxFileName::ImageForTile(dir, tile, oldKindWord(grabType, e), e < 3 ? setNumbers[e] : 0,
                                    static_cast<uint32_t>(index % 3), 0, output, NameCapacity);
}

const char16_t *PxImageContainer::effectiveDir(const char16_t *dir) const {
    if (dir)
        return dir;
    return directory.empty() ? nullptr : directory.c_str();
}

// ---- Write and Read -------------------------------------------------------------------------------------

// Writes one image with the encoding its compression class and the settings choose, falling back to the
// plainer encodings; reports the failure of the last one. Compressing changes the image's pixels. The
// checked write counts a file that did not reach the disk as a failure and removes it, so the container
// never reports true over truncated files.
bool PxImageContainer::writeImage(const std::u16string &name, tag_pxImage *image, int compression) {
    const uint16_t *file = fileName(name);
    if (g_compressFLS && compression == CLASS_FLS) {
        if (pxImageWriteChecked(file, CSHORT, image) || pxImageWriteChecked(file, SHORT12, image) ||
            pxImageWriteChecked(file, 0, image))
            return true;
        PX_SEND_ERROR(MODULE, ERR_WRITE_FLS_FAILED, PxTextToUtf8(name.c_str()).c_str());
        return false;
    }
    if (!g_compressCLRandTXT) {
        if (pxImageWriteChecked(file, 0, image))
            return true;
        PX_SEND_ERROR(MODULE, ERR_WRITE_PLAIN_FAILED, PxTextToUtf8(name.c_str()).c_str());
        return false;
    }
    if (pxImageWriteChecked(file, SHORT12, image) || pxImageWriteChecked(file, 0, image))
        return true;
    PX_SEND_ERROR(MODULE, ERR_WRITE_SHORT12_FAILED, PxTextToUtf8(name.c_str()).c_str());
    return false;
}

bool PxImageContainer::Write(const char16_t *dir) {
    Initialize();
    if (images.empty())
        return true;
    const char16_t *target = effectiveDir(dir);
    if (!PxDirectoryExist(target)) {
        PX_SEND_ERROR(MODULE, ERR_WRITE_DIRECTORY_MISSING, PxTextToUtf8(target).c_str());
        return false;
    }
    char16_t name[NameCapacity];
    for (size_t i = 0; i < images.size(); ++i) {
        if (!images[i])
            continue;
        if (!MakeFullImageName(target, i, name)) {
            PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Image file name longer than %zu characters",
                     NameCapacity - 1);
            return false;
        }
        const int e = static_cast<int>(i / 3);
        const int compression = g_compressFLS ? compressionClass(grabType, e) : CLASS_IMG;
        if (!writeImage(name, images[i], compression))
            return false;
    }
    return true;
}

bool PxImageContainer::Read(const char16_t *dir) {
    Initialize();
    Destruct();
    const char16_t *source = effectiveDir(dir);
    if (!PxDirectoryExist(source)) {
        PX_SEND_ERROR(MODULE, ERR_READ_DIRECTORY_MISSING, PxTextToUtf8(source).c_str());
        return false;
    }
    char16_t name[NameCapacity];
    const size_t count = static_cast<size_t>(numImages());
    for (size_t i = 0; i < count; ++i) {
        bool named = MakeFullImageName(source, i, name);
        if (named && !PxFileExist(name)) {
            PX_WARN(4, MODULE, "%s", "'%' file not found. Make old file name.");
            named = MakeFullOldImageName(source, i, name);
        }
        if (!named) {
            PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "Image file name longer than %zu characters",
                     NameCapacity - 1);
            return false;
        }
        tag_pxImage *image = nullptr;
        if (!pxImageRead(reinterpret_cast<const uint16_t *>(name), 0, 0, &image)) {
            PX_SEND_ERROR(MODULE, ERR_READ_FILE_FAILED, PxTextToUtf8(name).c_str());
            return false;
        }
        Add(image);
    }
    return true;
}

// ---- XML form -------------------------------------------------------------------------------------------

std::u16string PxImageContainer::toXMLString() const {
    CMarkupSTL xml;
    xml.AddElem(u"PxImageContainer");
    xml.AddAttrib(u"Tile", decimalText(tile));
    xml.AddAttrib(u"ImgGrabType", static_cast<int>(grabType));
    xml.AddAttrib(u"SetNum0", decimalText(SetNum0));
    xml.AddAttrib(u"SetNum1", decimalText(SetNum1));
    xml.AddAttrib(u"SetNum2", decimalText(SetNum2));
    if (!xml.AddAttrib(u"Path", directory)) {
        PX_ERROR(MODULE, PX_ERR_INVALID_ARGUMENT, "%s",
                 "Path cannot be written as XML (null character or unpaired surrogate)");
        return std::u16string();
    }
    return xml.GetDoc();
}

int PxImageContainer::fromXMLString(const std::u16string &text) {
    CMarkupSTL xml;
    if (!xml.SetDoc(text) || !xml.FindElem(u"PxImageContainer"))
        return 0;
    tile = decimalToInt(xml.GetAttrib(u"Tile"));
    SetPrefix(static_cast<PxGrabType>(static_cast<int32_t>(decimalToInt(xml.GetAttrib(u"ImgGrabType")))),
              decimalToInt(xml.GetAttrib(u"SetNum0")), decimalToInt(xml.GetAttrib(u"SetNum1")),
              decimalToInt(xml.GetAttrib(u"SetNum2")));
    directory = xml.GetAttrib(u"Path");
    return 0;
}
