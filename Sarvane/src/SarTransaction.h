// One log file: a 12-byte header (magic, compressor count, resume position) and a plain or deflated body;
// it knows nothing of what the body says. Not locked: one thread uses an instance at a time.
#pragma once

#include <cstdint>
#include <string>

#include "file/BinaryStream.h"
#include "file/BinaryStreamFileBuffer.h"
#include "file/CFileGrowT.h"
#include "store/ZLib.h"
#include "store/ZLibCompressedBuffer.h"

namespace Ostrel {

class SarTransaction {
public:
    using File = VantuFile::CFileGrowT<unsigned int>;
    using Stream = Vantu::BinaryStreamT<unsigned int>;

    static constexpr uint32_t kMagic = 0x0BF1E8A7;
    static constexpr unsigned int kHeaderSize = 12;
    // The file grows by this much at a time, so the file system doesn't extend it at every window.
    static constexpr unsigned int kGrowStep = 0x5E1000;
    // Nothing sits between the compressed windows and the file: they do all the batching.
    static constexpr unsigned int TRANSACTIONREADBUFFERSIZE = 0;
    static constexpr unsigned int TRANSACTIONWRITEBUFFERSIZE = 0;

    // Opens nothing.
    SarTransaction(const std::u16string& path, bool compressed);
    SarTransaction(const SarTransaction&) = delete;
    SarTransaction& operator=(const SarTransaction&) = delete;
    // Closes the file without syncing it: a caller that needs the log durable has called Close.
    ~SarTransaction() = default;

    // Starts afresh. Writing empties the file and writes a header of magic, 0, 0; reading checks the
    // magic (SarInvalidIndexVersionException, message 16, leaving the file open) and keeps the header.
    void Open(bool forReading);
    // The body, in the direction of the last Open.
    Stream& GetStream() { return reading_ ? inputStream_ : outputStream_; }
    // For a user's plain trailer behind the body, and for deletion.
    File& GetTransactionFile() { return file_; }
    // Writing: ends the deflate unit, syncs the body, then writes and syncs the header. A saved resume
    // position goes into the header in either direction.
    void Close();
    bool Exists() const;
    // Closes if open, drops the buffers' memory and deletes the file durably.
    void Clear();
    // The file's physical size, growth slack included while it is open; 0 when there is no file.
    uint64_t GetDiskSpaceUsed() const;
    // How far a reader got, between 0 and 1 (0 for a compressed file whose count is 0).
    double GetBytesReadPct();

    bool NeedResume() const { return resumePosition_ != 0; }
    // Remembers where the reader stands; the next Close stores it in the header.
    void SaveStateForResume();
    // Clears the stored position on disk first, so that a crash can't resume twice from an old place,
    // then moves the reader back to it.
    void Resume();

    uint32_t Total() const { return total_; }
    uint32_t ResumePosition() const { return resumePosition_; }

private:
    void WriteHeader();
    void ResetInput();

    bool reading_ = false;
    const bool compressed_;
    VantuCompression::ZLib compression_;
    File file_;
    VantuFile::OCFileBufferT<unsigned int, File> outputFileBuffer_;
    VantuCompression::OCompressedBufferT<unsigned int> outputCompressed_;
    Stream outputStream_;
    VantuFile::ICFileBufferT<unsigned int, File> inputFileBuffer_;
    VantuCompression::ICompressedBufferT<unsigned int> inputCompressed_;
    Stream inputStream_;
    uint32_t total_ = 0;
    uint32_t resumePosition_ = 0;
};

// Slice transactions are files "Index-NNNNNNNNNN.trn" in the slice's index files path; the extension
// stacked behind that name is the durable state of the transaction, and only a rename changes it.
inline constexpr const char16_t* kTransactionExtension = u".trn";
inline constexpr const char16_t* kTransactionBeingWritten = u".ttp";
inline constexpr const char16_t* kTransactionComplete = u".trc";
inline constexpr const char16_t* kTransactionBeingApplied = u".trd";
inline constexpr const char16_t* kTransactionStoresCommitting = u".trb";
// The folder under the index files path where applied transactions are archived.
inline constexpr const char16_t* kTransactionsFolder = u"Transactions";
// Every state of every slice transaction.
inline constexpr const char* kTransactionPattern = "Index-*.tr?*";

// "Index-" and the number zero-padded to at least 10 digits, then ".trn".
std::u16string SarTransactionFileName(uint64_t number);
// The name without its last extension: "X.trc" gives "X".
std::u16string SarRemoveTransactionState(const std::u16string& name);

// The next transaction number of a slice. Starting from 0, the first request continues after the highest
// name found in the index files path and in its "Transactions" folder; every request skips names in use.
// One thread at a time.
class SarTransactionCounter {
public:
    // The full path of the next transaction file, "<indexPath>/Index-NNNNNNNNNN.trn".
    std::u16string NextTransactionPath(const std::u16string& indexPath);

private:
    uint64_t next_ = 0;
};

}  // namespace Ostrel
