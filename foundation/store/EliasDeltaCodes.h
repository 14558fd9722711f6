// Codes a list of u32 (non-decreasing when coded as gaps) in Elias delta codes, self-delimiting, on whole bytes.
// Stateless: one object may serve any thread; each BitsReaderWriter serves one thread at a time.
#pragma once

#include "core/FastVector.h"
#include "store/BitVector.h"
#include "store/BitsReaderWriter.h"

namespace VantuCompression {

// A list: Elias delta of its count, then one code per entry, each of (entry - previous) + 1 with gaps, or
// of (entry - base) + 1 without; the previous of the first entry is base. The +1 lets 0 and repeats be
// coded. Zero bits pad the last byte. A reader stops at the count, so bytes behind a list never matter.
class EliasDeltaCodes {
public:
    // Refuses an empty list, and a list that falls below base or, with gaps, descends, before it writes.
    void Compress(const Vantu::FastVector<unsigned int>& list, bool gaps, BitsReaderWriter& bits,
                  unsigned int base) const;
    // Appends the entries to list; returns their number.
    unsigned int Uncompress(BitsReaderWriter& bits, bool gaps, Vantu::FastVector<unsigned int>& list,
                            unsigned int base) const;
    // Sets each listed bit of vector to value; without grow, entries past the vector's end are skipped.
    unsigned int Uncompress(BitsReaderWriter& bits, bool gaps, VantuAlgo::BitVector& vector, bool value, bool grow,
                            unsigned int base) const;
};

}  // namespace VantuCompression
