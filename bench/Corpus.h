// The benchmark corpus: documents of real text from a JSON-lines file ({"uri": ..., "text": ...} per line),
// built by the shared make_corpus.sh and named by the environment variable SARVANE_CORPUS.
#pragma once

#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

namespace SarvaneBench {

struct CorpusDocument {
    std::string uri;
    std::string text;  // UTF-8
};

// Decodes the JSON string that starts at `pos` (on its opening quote); `pos` moves behind the closing quote.
inline std::string JsonString(const std::string& line, size_t& pos) {
    std::string out;
    auto utf8 = [&out](unsigned c) {
        if (c < 0x80) out += char(c);
        else if (c < 0x800) { out += char(0xC0 | c >> 6); out += char(0x80 | (c & 0x3F)); }
        else if (c < 0x10000) { out += char(0xE0 | c >> 12); out += char(0x80 | ((c >> 6) & 0x3F)); out += char(0x80 | (c & 0x3F)); }
        else { out += char(0xF0 | c >> 18); out += char(0x80 | ((c >> 12) & 0x3F)); out += char(0x80 | ((c >> 6) & 0x3F)); out += char(0x80 | (c & 0x3F)); }
    };
    for (++pos; pos < line.size() && line[pos] != '"'; ++pos) {
        if (line[pos] != '\\') { out += line[pos]; continue; }
        char e = line[++pos];
        switch (e) {
        case 'n': out += '\n'; break;
        case 't': out += '\t'; break;
        case 'r': out += '\r'; break;
        case 'b': out += '\b'; break;
        case 'f': out += '\f'; break;
        case 'u': {
            unsigned c = std::stoul(line.substr(pos + 1, 4), nullptr, 16);
            pos += 4;
            if (c >= 0xD800 && c < 0xDC00 && line.compare(pos + 1, 2, "\\u") == 0) {
                unsigned low = std::stoul(line.substr(pos + 3, 4), nullptr, 16);
                c = 0x10000 + ((c - 0xD800) << 10) + (low - 0xDC00);
                pos += 6;
            }
            utf8(c);
            break;
        }
        default: out += e;
        }
    }
    ++pos;
    return out;
}

// One line of the corpus: a JSON object with the strings "uri" and "text".
inline CorpusDocument ParseCorpusLine(const std::string& line) {
    CorpusDocument doc;
    for (const char* key : {"\"uri\"", "\"text\""}) {
        size_t pos = line.find(key);
        if (pos == std::string::npos) continue;
        pos = line.find('"', line.find(':', pos));
        (key[1] == 'u' ? doc.uri : doc.text) = JsonString(line, pos);
    }
    return doc;
}

// Up to `maxBytes` of text from the corpus; empty when SARVANE_CORPUS is unset or unreadable.
inline std::vector<CorpusDocument> LoadCorpus(size_t maxBytes) {
    std::vector<CorpusDocument> docs;
    const char* path = std::getenv("SARVANE_CORPUS");
    if (!path) return docs;
    std::ifstream in(path);
    size_t total = 0;
    for (std::string line; total < maxBytes && std::getline(in, line);) {
        docs.push_back(ParseCorpusLine(line));
        total += docs.back().text.size();
    }
    return docs;
}

}  // namespace SarvaneBench
