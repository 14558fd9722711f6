// The logging convention of the public operations: a failure that passes through one is written to the log
// with the operation's suffix (" : Class::Operation") at severity 3, then goes on. Any thread.
#pragma once

#include <exception>
#include <string>
#include <string_view>

#include "core/Exception.h"
#include "core/LogCallInterface.h"
#include "core/Text.h"

namespace Ostrel {

// Writes "text" + suffix as one exception line; a null log writes nothing.
void SarLogFailure(const Vantu::SmartPtr<Vantu::LogCallInterface>& log, std::u16string text, std::u16string_view suffix);

// Runs `body` and answers what it answers. What it throws is logged with `suffix` and rethrown unchanged:
// a standard exception by its what(), an engine or foundation exception by its What(), anything else as
// "UNEXPECTED ERROR".
template <class Body>
decltype(auto) SarLogged(const Vantu::SmartPtr<Vantu::LogCallInterface>& log, std::u16string_view suffix, Body&& body) {
    try {
        return body();
    } catch (const std::exception& e) {
        SarLogFailure(log, Vantu::FromUtf8(e.what()), suffix);
        throw;
    } catch (const Vantu::BaseException& e) {
        SarLogFailure(log, e.What(), suffix);
        throw;
    } catch (...) {
        SarLogFailure(log, u"UNEXPECTED ERROR", suffix);
        throw;
    }
}

#define SAR_LOG_SUFFIX(Class, Operation) inline constexpr char16_t Operation[] = u" : " #Class "::" #Operation;

namespace SarvaneContainerSuffix {
SAR_LOG_SUFFIX(SarvaneContainer, AddAccessControlEntry)
SAR_LOG_SUFFIX(SarvaneContainer, AddCollectionForPhysical)
SAR_LOG_SUFFIX(SarvaneContainer, AddCustomFieldAlias)
SAR_LOG_SUFFIX(SarvaneContainer, AddDocument)
SAR_LOG_SUFFIX(SarvaneContainer, AddPhysicalIndex)
SAR_LOG_SUFFIX(SarvaneContainer, AddRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(SarvaneContainer, AddSliceIndex)
SAR_LOG_SUFFIX(SarvaneContainer, CancelShrink)
SAR_LOG_SUFFIX(SarvaneContainer, ClearAccessControlEntry)
SAR_LOG_SUFFIX(SarvaneContainer, ClearCustomFieldAliases)
SAR_LOG_SUFFIX(SarvaneContainer, CommitConfig)
SAR_LOG_SUFFIX(SarvaneContainer, CommitCurrentTransaction)
SAR_LOG_SUFFIX(SarvaneContainer, DeleteDocument)
SAR_LOG_SUFFIX(SarvaneContainer, DeleteDocuments)
SAR_LOG_SUFFIX(SarvaneContainer, DeleteDocumentsOlderThan)
SAR_LOG_SUFFIX(SarvaneContainer, DeleteURIs)
SAR_LOG_SUFFIX(SarvaneContainer, DocumentIsIndexed)
SAR_LOG_SUFFIX(SarvaneContainer, EnumValidCollectionIDs)
SAR_LOG_SUFFIX(SarvaneContainer, Flush)
SAR_LOG_SUFFIX(SarvaneContainer, GetAccessControlList)
SAR_LOG_SUFFIX(SarvaneContainer, GetChildDirectoriesFromURI)
SAR_LOG_SUFFIX(SarvaneContainer, GetChildFilesFromURI)
SAR_LOG_SUFFIX(SarvaneContainer, GetCustomFieldType)
SAR_LOG_SUFFIX(SarvaneContainer, GetDocumentInformation)
SAR_LOG_SUFFIX(SarvaneContainer, GetDocuments)
SAR_LOG_SUFFIX(SarvaneContainer, GetIndexedDocumentType)
SAR_LOG_SUFFIX(SarvaneContainer, GetStatistics)
SAR_LOG_SUFFIX(SarvaneContainer, GetURIsFromSource)
SAR_LOG_SUFFIX(SarvaneContainer, HasChildren)
SAR_LOG_SUFFIX(SarvaneContainer, IsCustomFieldRankable)
SAR_LOG_SUFFIX(SarvaneContainer, ListRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(SarvaneContainer, LoadCachedDocument)
SAR_LOG_SUFFIX(SarvaneContainer, LoadDocument)
SAR_LOG_SUFFIX(SarvaneContainer, LoadDocumentAndHighlights)
SAR_LOG_SUFFIX(SarvaneContainer, PerformDidYouMean)
SAR_LOG_SUFFIX(SarvaneContainer, PerformQuery)
SAR_LOG_SUFFIX(SarvaneContainer, RemoveCollectionForPhysical)
SAR_LOG_SUFFIX(SarvaneContainer, RemovePhysicalIndex)
SAR_LOG_SUFFIX(SarvaneContainer, RemoveRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(SarvaneContainer, RemoveSliceIndex)
SAR_LOG_SUFFIX(SarvaneContainer, SetSarvaneConfig)
SAR_LOG_SUFFIX(SarvaneContainer, SetSarvaneContainerConfig)
SAR_LOG_SUFFIX(SarvaneContainer, SetRankingEngineConfig)
SAR_LOG_SUFFIX(SarvaneContainer, ShrinkThread)
SAR_LOG_SUFFIX(SarvaneContainer, Stop)
SAR_LOG_SUFFIX(SarvaneContainer, TransactionThread)
SAR_LOG_SUFFIX(SarvaneContainer, UpdateDocumentsRank)
SAR_LOG_SUFFIX(SarvaneContainer, UpdateRankingEngineConfigSourceInfo)
// The one suffix that does not repeat its operation's name.
inline constexpr char16_t UpdateDocumentInformation[] = u" : SarvaneContainer::UpdateDocumentInfo";
}  // namespace SarvaneContainerSuffix

namespace SarvaneSuffix {
SAR_LOG_SUFFIX(Sarvane, AddCustomFieldAlias)
SAR_LOG_SUFFIX(Sarvane, AddDocument)
SAR_LOG_SUFFIX(Sarvane, AddRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(Sarvane, AddSupportedCollection)
SAR_LOG_SUFFIX(Sarvane, ClearCustomFieldAliases)
SAR_LOG_SUFFIX(Sarvane, Commit)
SAR_LOG_SUFFIX(Sarvane, DeleteDocuments)
SAR_LOG_SUFFIX(Sarvane, DoRecovery)
SAR_LOG_SUFFIX(Sarvane, Flush)
SAR_LOG_SUFFIX(Sarvane, GetCustomFieldType)
SAR_LOG_SUFFIX(Sarvane, GetStatistics)
SAR_LOG_SUFFIX(Sarvane, ListRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(Sarvane, LoadDocument)
SAR_LOG_SUFFIX(Sarvane, LoadDocumentAndHighlights)
SAR_LOG_SUFFIX(Sarvane, PerformQuery)
SAR_LOG_SUFFIX(Sarvane, PreCommit)
SAR_LOG_SUFFIX(Sarvane, ReadTransactions)
SAR_LOG_SUFFIX(Sarvane, RemoveRankingEngineConfigSourceInfo)
SAR_LOG_SUFFIX(Sarvane, RemoveSupportedCollection)
SAR_LOG_SUFFIX(Sarvane, SetSarvaneConfig)
SAR_LOG_SUFFIX(Sarvane, SetRankingEngineConfig)
SAR_LOG_SUFFIX(Sarvane, Shrink)
SAR_LOG_SUFFIX(Sarvane, UpdateDocumentsRank)
SAR_LOG_SUFFIX(Sarvane, UpdateRankingEngineConfigSourceInfo)
}  // namespace SarvaneSuffix

namespace FileTransactionsReaderSuffix {
SAR_LOG_SUFFIX(FileTransactionsReader, ApplyTermsOperationsThread)
}  // namespace FileTransactionsReaderSuffix

#undef SAR_LOG_SUFFIX

}  // namespace Ostrel
