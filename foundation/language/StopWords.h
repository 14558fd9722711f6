// Which normalised words are stop words: the built-in list, or a caller's own set.
// Built once, then only read: any thread may ask at any time.
#pragma once

#include <set>
#include <string>

namespace Vantu {
template <class T>
class BinaryStreamT;
}

namespace VantuLanguage {

class StopWords {
public:
    // A default record asks the built-in list; any other its own set, which starts empty.
    explicit StopWords(bool isDefault = true) : isDefault_(isDefault) {}

    bool operator==(const StopWords& other) const = default;

    bool IsDefault() const { return isDefault_; }
    void SetDefault(bool isDefault) { isDefault_ = isDefault; }
    const std::set<std::u16string>& Words() const { return words_; }
    // Stores the word with its ligatures expanded and in lower-case base form, as words are asked about.
    void AddStopWord(const std::u16string& word);

    // Both take normalised words (Language::ToLowerBase).
    bool IsStopWord(const std::u16string& word) const {
        return isDefault_ ? IsDefaultStopWord(word) : words_.count(word) != 0;
    }
    static bool IsDefaultStopWord(const std::u16string& word);

private:
    friend Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>&, StopWords&);

    bool isDefault_;
    std::set<std::u16string> words_;
};

// u8 isDefault, u32 count, then the words in ascending order, each a wide string with its length prefix.
Vantu::BinaryStreamT<unsigned int>& operator<<(Vantu::BinaryStreamT<unsigned int>& stream, const StopWords& stopWords);
Vantu::BinaryStreamT<unsigned int>& operator>>(Vantu::BinaryStreamT<unsigned int>& stream, StopWords& stopWords);

}  // namespace VantuLanguage
