// The protection stage of the CSHORT compressor's fast kernels. It scans each row as the reference does. A
// row's marks can change only later reads of the same row (rows above are done, rows below are read after the
// row ends), so they are set on the row at once and, for the eight other rows they cover, collected in the
// row's cover row: each row takes the covers of the four rows above before its scan and of the four rows
// below once those are done (a ring of five cover rows). Overlapping squares set each pixel once. Stretches
// of columns where nothing can happen, or where every pixel is bright and the edges are quiet, are done a
// vector at a time; any other vector is stepped through pixel by pixel with the reference's rules.
#pragma once

#include "pxImageCompressInternal.h"
#include "pxImageCompressVectors.h"

namespace pxcompress {
namespace {

template <class ShortV, class HalfV, class FloatV> class Protector {
    typedef Vec<ShortV, HalfV, FloatV> V;
    static constexpr int Lanes = V::Lanes;
    static constexpr int FloatLanes = V::FloatLanes;

  public:
    // `covers` holds kCoverRows x width words, all zero, and is left all zero.
    Protector(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark,
              uint16_t *covers)
        : pixels_(pixels), width_(width), height_(height), s_(s), mark_(mark), covers_(covers),
          reach_(s.ratioWidth < 0 ? 0 : s.ratioWidth), widen_(truncateSaturated(s.protectWidth)),
          markFloat_(mark < -1      ? -1.0f
                     : mark > 65536 ? 65536.0f
                                    : (float)mark) {
        for (int64_t k = 0; k < kCoverRows; ++k)
            ring_[k] = {covers_ + k * width_, width_, -1};
    }

    // Rows 5..height-6 are scanned; four rows more pass on the marks of the last ones. Each row y takes the
    // marks of rows y-4..y-1 before it is scanned (nothing of rows below has been read yet) and, when row
    // y+4 is done, those of rows y+1..y+4.
    void run() {
        const int64_t last = height_ - 6;
        if (last < 5)
            return;
        for (int64_t y = 5; y <= last + 4; ++y) {
            startRow(y);
            if (y < height_)
                setMarks(y, y - 4, y - 1);
            if (y <= last) {
                if (s_.protectionMethod == 1)
                    scanBright(5, width_ - 6);
                else
                    scanEdges(s_.protectionMethod == 3);
            }
            setMarks(y - 4, y - 3, y);
        }
        for (int64_t y = last; y <= last + 4; ++y)
            clearCover(y);
    }

  private:
    static constexpr int64_t kCoverRows = kProtectScratchRows;

    // The columns a row has marked: a cover row of 0 and 1 and the range of its ones.
    struct Cover {
        uint16_t *columns;
        int64_t lo, hi;
    };

    uint16_t *const pixels_;
    const int64_t width_, height_;
    const Settings &s_;
    const int64_t mark_;
    uint16_t *const covers_;
    const int64_t reach_, widen_;
    const float markFloat_;

    Cover ring_[kCoverRows] = {};
    Cover *cover_ = nullptr;
    uint16_t *row_ = nullptr;
    int64_t squaresEnd_ = 0; // one past the last column the row's squares have marked
    bool open_ = false;
    int64_t rise_ = 0;

    // The cover of row y (rows below 5 mark nothing and have empty ones).
    Cover &coverOf(int64_t y) { return ring_[y % kCoverRows]; }

    void clearCover(int64_t y) {
        Cover &c = coverOf(y);
        if (c.lo <= c.hi)
            std::memset(c.columns + c.lo, 0, (size_t)(c.hi - c.lo + 1) * sizeof(uint16_t));
        c.lo = width_;
        c.hi = -1;
    }

    // Row y's cover takes the ring slot of row y - 5, whose marks every row has taken by now.
    void startRow(int64_t y) {
        clearCover(y);
        cover_ = &coverOf(y);
        row_ = pixels_ + y * width_;
        squaresEnd_ = 0;
        open_ = false;
        rise_ = 0;
    }

    // Sets the marks of rows first..last on row r; stretches of Lanes columns that none of them marked are
    // passed over.
    void setMarks(int64_t r, int64_t first, int64_t last) {
        first = first < 5 ? 5 : first;
        int64_t lo = width_, hi = -1;
        for (int64_t k = first; k <= last; ++k) {
            lo = coverOf(k).lo < lo ? coverOf(k).lo : lo;
            hi = coverOf(k).hi > hi ? coverOf(k).hi : hi;
        }
        if (r < 0 || lo > hi)
            return;
        const uint16_t *rows[4];
        int count = 0;
        for (int64_t k = first; k <= last; ++k)
            rows[count++] = coverOf(k).columns;
        uint16_t *target = pixels_ + r * width_;
        for (int64_t x = lo; x <= hi; x += Lanes) {
            const int64_t end = x + Lanes - 1 < hi ? x + Lanes - 1 : hi;
            if constexpr (Lanes > 1) {
                if (end - x + 1 == Lanes) {
                    ShortV marks = V::load(rows[0] + x);
                    for (int k = 1; k < count; ++k)
                        marks |= V::load(rows[k] + x);
                    if (anyLane(marks != 0))
                        V::store(target + x, V::load(target + x) | marks);
                    continue;
                }
            }
            for (int64_t c = x; c <= end; ++c)
                for (int k = 0; k < count; ++k)
                    target[c] |= rows[k][c];
        }
    }

    // Marks columns x0..x1 (clipped) of the row and of its cover.
    void markColumns(int64_t x0, int64_t x1) {
        x0 = x0 < 0 ? 0 : x0;
        x1 = x1 >= width_ ? width_ - 1 : x1;
        if (x0 > x1)
            return;
        for (int64_t x = x0; x <= x1; ++x) {
            row_[x] |= 1;
            cover_->columns[x] = 1;
        }
        cover_->lo = x0 < cover_->lo ? x0 : cover_->lo;
        cover_->hi = x1 > cover_->hi ? x1 : cover_->hi;
    }

    // The 9 x 9 square of a bright pixel at column x; squares come in increasing x, so the columns below
    // squaresEnd_ that it covers are marked already.
    void markSquare(int64_t x) { markSquares(x, x); }

    // The squares of the bright pixels at columns x0..x1, in one go.
    void markSquares(int64_t x0, int64_t x1) {
        markColumns(x0 - 4 > squaresEnd_ ? x0 - 4 : squaresEnd_, x1 + 4);
        squaresEnd_ = x1 + 5;
    }

    bool bright(int64_t x) const { return row_[x] > mark_; }

    // Columns x0..x1 where only bright pixels act.
    void scanBright(int64_t x0, int64_t x1) {
        if (mark_ >= 65535)
            return;
        int64_t x = x0;
        while (x <= x1) {
            if constexpr (Lanes > 1) {
                if (mark_ >= 0 && x + Lanes - 1 <= x1) {
                    const auto brightLanes = V::load(row_ + x) > (uint16_t)mark_;
                    if (!anyLane(brightLanes)) {
                        x += Lanes;
                        continue;
                    }
                    if (allLanes(brightLanes)) {
                        markSquares(x, x + Lanes - 1);
                        x += Lanes;
                        continue;
                    }
                }
            }
            for (const int64_t stop = x + Lanes - 1 < x1 ? x + Lanes - 1 : x1; x <= stop; ++x)
                if (bright(x))
                    markSquare(x);
        }
    }

    // Methods 2 and 3: the edge scan where both compared pixels lie in the row, bright pixels alone outside.
    void scanEdges(bool withBright) {
        const int64_t a = reach_ > 5 ? reach_ : 5;
        const int64_t b = width_ - 1 - reach_ < width_ - 6 ? width_ - 1 - reach_ : width_ - 6;
        if (a > b) {
            if (withBright)
                scanBright(5, width_ - 6);
            return;
        }
        if (withBright)
            scanBright(5, a - 1);
        scanFull(a, b, withBright);
        if (withBright)
            scanBright(b + 1, width_ - 6);
    }

    // One column of the edge scan, as the reference steps it.
    void step(int64_t x, bool withBright) {
        if (withBright && bright(x))
            markSquare(x);
        const float left = row_[x - reach_];
        const float right = row_[x + reach_];
        if (!open_) {
            if (right > s_.ratioTh * left) {
                open_ = true;
                rise_ = x;
            }
            return;
        }
        if (x - rise_ > s_.maxProtectWidth) {
            open_ = false;
        } else if (left / s_.ratioTh > right) {
            markColumns(rise_ - widen_, x + widen_);
            open_ = false;
        }
    }

    // True when the edge tests of columns x..x+FloatLanes-1 on these compared pixels change nothing: while no
    // stretch is open, no rise; while one is, no fall and no column past its length limit.
    bool edgesQuiet(int64_t x, FloatV left, FloatV right) const {
        if (!open_)
            return !anyLane(right > s_.ratioTh * left);
        if (x + FloatLanes - 1 - rise_ > s_.maxProtectWidth)
            return false;
        return !anyLane(left / s_.ratioTh > right);
    }

    // Does the edge scan of the FloatLanes columns from x in one go when it can: with no bright pixel and
    // quiet edges nothing happens; with every pixel bright (compared pixels at most 4 columns away) each
    // column's square has marked both compared pixels before they are read, so the edges are tested on the
    // pixels with bit 0 set and, when quiet, the block is the union of its squares. False: step through it.
    bool block(int64_t x, bool withBright) {
        const FloatV left = V::loadFloat(row_ + x - reach_);
        const FloatV right = V::loadFloat(row_ + x + reach_);
        if (!withBright)
            return edgesQuiet(x, left, right);
        const auto brightLanes = V::loadFloat(row_ + x) > markFloat_;
        if (!anyLane(brightLanes))
            return edgesQuiet(x, left, right);
        if (reach_ > 4 || !allLanes(brightLanes) ||
            !edgesQuiet(x, V::loadFloat(row_ + x - reach_, 1), V::loadFloat(row_ + x + reach_, 1)))
            return false;
        markSquares(x, x + FloatLanes - 1);
        return true;
    }

    void scanFull(int64_t x0, int64_t x1, bool withBright) {
        int64_t x = x0;
        while (x <= x1) {
            if constexpr (FloatLanes > 1) {
                if (x + FloatLanes - 1 <= x1 && block(x, withBright)) {
                    x += FloatLanes;
                    continue;
                }
            }
            for (const int64_t stop = x + FloatLanes - 1 < x1 ? x + FloatLanes - 1 : x1; x <= stop; ++x)
                step(x, withBright);
        }
    }
};

template <class ShortV, class HalfV, class FloatV>
void protectLanes(uint16_t *pixels, int64_t width, int64_t height, const Settings &s, int64_t mark,
                  uint16_t *scratch) {
    if (s.protectionMethod < 1 || s.protectionMethod > 3)
        return;
    Protector<ShortV, HalfV, FloatV>(pixels, width, height, s, mark, scratch).run();
}

} // namespace
} // namespace pxcompress
