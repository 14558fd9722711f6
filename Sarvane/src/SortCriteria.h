// The orders of a result list, and the names the query trace gives them. Constants: any thread.
#pragma once

namespace Ostrel {

enum SortCriteria : int {
    Relevance = 1,
    DocumentDateDescending = 2,
    DocumentDateAscending = 3,
    IndexDateDescending = 4,
    IndexDateAscending = 5,
};

// The trace keeps the historical spelling of the first name.
inline const char* SortCriteriaText(SortCriteria criteria) {
    switch (criteria) {
    case Relevance: return "Revelancy";
    case DocumentDateDescending: return "Doc Date Desc";
    case DocumentDateAscending: return "Doc Date Asc";
    case IndexDateDescending: return "Ind Date Desc";
    case IndexDateAscending: return "Ind Date Asc";
    }
    return "Invalid !!";
}

}  // namespace Ostrel
