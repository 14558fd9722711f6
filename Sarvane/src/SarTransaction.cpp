#include "SarTransaction.h"

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <sys/stat.h>
#include <vector>

#include "SarException.h"
#include "SarvaneConfigValues.h"
#include "core/Text.h"
#include "file/FileSystem.h"

namespace Ostrel {

SarTransaction::SarTransaction(const std::u16string& path, bool compressed)
    : compressed_(compressed),
      compression_(1, 8, 15),
      file_(SarNarrowPath(path), kGrowStep, 0, true, false),
      outputFileBuffer_(file_, TRANSACTIONWRITEBUFFERSIZE),
      outputCompressed_(outputFileBuffer_, &compression_),
      outputStream_(compressed ? static_cast<Vantu::BinaryStreamBufT<unsigned int>&>(outputCompressed_)
                               : outputFileBuffer_),
      inputFileBuffer_(file_, TRANSACTIONREADBUFFERSIZE),
      inputCompressed_(inputFileBuffer_, &compression_),
      inputStream_(compressed ? static_cast<Vantu::BinaryStreamBufT<unsigned int>&>(inputCompressed_)
                              : inputFileBuffer_) {}

void SarTransaction::Open(bool forReading) {
    reading_ = forReading;
    // Whatever an earlier Open left in the buffers belongs to another life of the file.
    outputCompressed_.Attach(outputFileBuffer_);
    outputFileBuffer_.Clear();
    ResetInput();
    file_.Open(forReading ? File::kModeRead : File::kModeCreate);
    total_ = resumePosition_ = 0;
    if (!forReading) {
        WriteHeader();
        return;
    }
    uint32_t header[3];
    file_.Read(header, 1, kHeaderSize, true);
    // A foreign file keeps a resume position of 0, so that Close never writes a header into it.
    if (header[0] != kMagic) throw SarInvalidIndexVersionException(SAR_MESSAGE(16, header[0], kMagic));
    total_ = header[1];
    resumePosition_ = header[2];
}

void SarTransaction::Close() {
    const bool writing = !reading_ && file_.IsOpen();
    if (writing) {
        // The body is synced before the header names its count, and Close syncs the header.
        const bool deflated = outputCompressed_.Pending();
        if (deflated) outputCompressed_.Finish();
        outputFileBuffer_.Flush();
        total_ = deflated ? uint32_t(compression_.RunningCount()) : 0;
        WriteHeader();
    } else {
        ResetInput();
    }
    file_.Close();
    // A log that was created must still be there after a power cut once Close has returned.
    if (writing) VantuFile::SyncDirectoryOf(file_.Path());
    if (resumePosition_ != 0) {
        file_.Open(File::kModeReadWrite);
        WriteHeader();
        file_.Close();
    }
    resumePosition_ = total_ = 0;
}

bool SarTransaction::Exists() const { return VantuFile::FileExists(file_.Path()); }

void SarTransaction::Clear() {
    if (file_.IsOpen()) Close();
    outputFileBuffer_.ClearMemory();
    inputFileBuffer_.ClearMemory();
    file_.Delete();
}

uint64_t SarTransaction::GetDiskSpaceUsed() const {
    if (!Exists()) return 0;
    if (file_.IsOpen()) return file_.Allocated();
    struct stat info;
    return stat(file_.Path().c_str(), &info) == 0 ? uint64_t(info.st_size) : 0;
}

double SarTransaction::GetBytesReadPct() {
    if (!compressed_) {
        const unsigned int size = inputFileBuffer_.Size();
        return size == 0 ? 0.0 : double(inputFileBuffer_.TellG()) / size;
    }
    return total_ == 0 ? 0.0 : std::min(1.0, double(compression_.RunningCount()) / total_);
}

void SarTransaction::SaveStateForResume() {
    resumePosition_ = compressed_ ? uint32_t(inputCompressed_.Produced()) : inputFileBuffer_.TellG();
}

void SarTransaction::Resume() {
    if (resumePosition_ == 0) return;
    const uint32_t position = resumePosition_;
    resumePosition_ = 0;
    file_.Close();
    file_.Open(File::kModeReadWrite);
    WriteHeader();
    file_.Close();
    file_.Open(File::kModeRead);
    ResetInput();
    if (compressed_) {
        inputFileBuffer_.SeekG(kHeaderSize);
        inputCompressed_.SeekG(position, Vantu::kSeekCurrent);
    } else {
        inputFileBuffer_.SeekG(position);
    }
}

void SarTransaction::WriteHeader() {
    const uint32_t header[3] = {kMagic, total_, resumePosition_};
    file_.Seek(0);
    file_.Write(header, 1, kHeaderSize);
}

void SarTransaction::ResetInput() {
    inputCompressed_.Attach(inputFileBuffer_);
    inputFileBuffer_.Clear();
}

std::u16string SarTransactionFileName(uint64_t number) {
    std::string digits = std::to_string(number);
    if (digits.size() < 10) digits.insert(0, 10 - digits.size(), '0');
    return u"Index-" + Vantu::FromUtf8(digits) + kTransactionExtension;
}

std::u16string SarRemoveTransactionState(const std::u16string& name) {
    const size_t dot = name.rfind(u'.');
    return dot == std::u16string::npos ? name : name.substr(0, dot);
}

namespace {

// The part behind "Index-" of the last name, in text order, of the transactions in `folder`; empty if none.
std::string LastTransactionSuffix(const std::string& folder) {
    const std::vector<std::string> paths = VantuFile::ListFiles(folder, kTransactionPattern);
    if (paths.empty()) return {};
    const std::string name = std::filesystem::path(paths.back()).filename().string();
    return name.substr(std::strlen("Index-"));
}

// Digits up to the first ".".
uint64_t ParseTransactionNumber(const std::string& suffix) {
    uint64_t number = 0;
    for (char c : suffix) {
        if (c < '0' || c > '9') break;
        number = number * 10 + uint64_t(c - '0');
    }
    return number;
}

}  // namespace

std::u16string SarTransactionCounter::NextTransactionPath(const std::u16string& indexPath) {
    const std::u16string folder = indexPath + u"/";
    if (next_ == 0) {
        std::vector<std::string> kept;
        for (const std::u16string& dir : {indexPath, folder + kTransactionsFolder}) {
            std::string suffix = LastTransactionSuffix(SarNarrowPath(dir));
            if (!suffix.empty()) kept.push_back(std::move(suffix));
        }
        // Text order: after "9999999999" an 11-digit name sorts lower, and the search for a free name
        // below walks past the names in use.
        if (!kept.empty()) next_ = ParseTransactionNumber(*std::max_element(kept.begin(), kept.end())) + 1;
    }
    std::u16string path;
    do {
        path = folder + SarTransactionFileName(next_++);
    } while (VantuFile::FileExists(SarNarrowPath(path)));
    return path;
}

}  // namespace Ostrel
