// What the store benchmarks share: a fresh directory under /tmp, a slice configuration on it, and a corpus text
// turned into an analysed Document.
#pragma once

#include <stdlib.h>

#include <string>

#include "Corpus.h"
#include "Document.h"
#include "DocumentAnalyser.h"
#include "SarvaneInternalConfig.h"
#include "core/Text.h"

namespace SarvaneBench {

inline std::string FreshDirectory() {
    char pattern[] = "/tmp/sarvane-bench-XXXXXX";
    return mkdtemp(pattern);
}

// Slice 1 of mirror 1 of physical index 1, in `dir`; callers adjust it before taking the internal form.
inline Ostrel::SarvaneConfig SliceConfig(const std::string& dir) {
    Ostrel::SarvaneConfig config(1, 1, 1);
    config.SetIndexFilesPath(Vantu::FromUtf8(dir));
    return config;
}

inline Vantu::SmartPtr<Ostrel::SarvaneInternalConfig> Internal(const Ostrel::SarvaneConfig& config) {
    return Vantu::SmartPtr<Ostrel::SarvaneInternalConfig>(new Ostrel::SarvaneInternalConfig(config));
}

// A document of collection 1 with the text's URI and size, analysed as the application would hand it in.
inline Vantu::SmartPtr<Ostrel::Document> AnalysedDocument(const Ostrel::DocumentAnalyser& analyser,
                                                          const CorpusDocument& text) {
    Vantu::SmartPtr<Ostrel::Document> document(new Ostrel::Document);
    document->URI(Vantu::FromUtf8(text.uri));
    document->collection = 1;
    document->size = uint32_t(text.text.size());
    analyser.Analyse(*document, Vantu::FromUtf8(text.text));
    return document;
}

}  // namespace SarvaneBench
