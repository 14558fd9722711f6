// The compressor contract under the compressed stream buffers: steps over an input and an output window.
// An object codes one unit at a time, in one direction at a time; one thread at a time.
#pragma once

#include <cstdint>
#include <vector>

#include "file/BinaryStreamException.h"

namespace VantuCompression {

// Bytes that don't decode, or a coder that fails: the data can't be trusted past this point.
VANTU_DECLARE_EXCEPTION(CompressionException, Vantu::BinaryStreamException);

class BaseCompression {
public:
    // An input window whose bytes [inputUsed, inputFill) wait for the coder, and an output window
    // whose first outputFill bytes the coder produced.
    struct BuffersInfo {
        explicit BuffersInfo(unsigned int size) : input(size), output(size) {}

        unsigned int Size() const { return unsigned(input.size()); }
        unsigned int InputLeft() const { return inputFill - inputUsed; }
        unsigned int OutputRoom() const { return Size() - outputFill; }
        void ResetInput() { inputFill = inputUsed = 0; }
        void ResetOutput() { outputFill = 0; }

        std::vector<uint8_t> input;
        std::vector<uint8_t> output;
        unsigned int inputFill = 0;
        unsigned int inputUsed = 0;
        unsigned int outputFill = 0;
    };

    BaseCompression() = default;
    BaseCompression(const BaseCompression&) = delete;
    BaseCompression& operator=(const BaseCompression&) = delete;
    virtual ~BaseCompression() = default;

    // Starts a unit.
    virtual void CompressInit(BuffersInfo& buffers) = 0;
    // Consumes input until the input window is used up or the output window is full.
    virtual void Compress(BuffersInfo& buffers) = 0;
    // Finishes the unit (consuming any input left); true once all its output has been produced.
    // Called in a loop, with the output window drained between calls.
    virtual bool CompressEnd(BuffersInfo& buffers) = 0;

    // Starts reading a unit.
    virtual void DecompressInit(BuffersInfo& buffers) = 0;
    // Consumes input and fills the output window; true when the unit has ended. The input behind the
    // end of the unit stays unconsumed in the window.
    virtual bool Decompress(BuffersInfo& buffers) = 0;

    // Compressed bytes of the current unit: produced when writing, consumed when reading, so that a
    // reader's count runs up to the value the writer ended with.
    uint64_t RunningCount() const { return runningCount_; }

protected:
    uint64_t runningCount_ = 0;
};

}  // namespace VantuCompression
