// A bad query text: a value the query path returns beside its results, never an engine failure.
// Thrown inside the parser and caught by whoever parses; copyable, any thread.
#pragma once

#include <string>

namespace Ostrel {

// Numeric values are fixed: callers and stored diagnostics switch on them.
enum ExceptionTypes : int {
    QueryValid = 1,                  // no failure: the initial state of a query's outcome
    QuerySyntaxError = 2,            // the text of the offending token
    QueryInvalidCustomField = 3,     // the field's text, or empty when its value is bad
    QueryInvalidDate = 4,            // the date's text
    QueryInvalidPhrase = 5,          // a phrase with no words
    QueryInvalidDateFromToday = 6,   // a relative date without "+" or "-"
    QueryInvalidNear = 7,            // the NEAR operator's text
    QueryInvalidWord = 9,            // the word's text
    QueryTooManyTerms = 10,          // more terms than the evaluation allows
};

class QueryException {
public:
    QueryException() = default;
    QueryException(ExceptionTypes type, std::string text) : type_(type), text_(std::move(text)) {}

    ExceptionTypes GetType() const { return type_; }
    const std::string& GetText() const { return text_; }  // UTF-8
    bool IsValid() const { return type_ == QueryValid; }

    bool operator==(const QueryException&) const = default;

private:
    ExceptionTypes type_ = QueryValid;
    std::string text_;
};

}  // namespace Ostrel
