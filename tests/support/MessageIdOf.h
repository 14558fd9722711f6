// The message id of the exception of type E that `body` raises: -1 when it carries no message; a test
// failure (and -2) when nothing is raised.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <functional>

template <class E>
int32_t MessageIdOf(const std::function<void()>& body) {
    try {
        body();
    } catch (const E& e) {
        return e.GetMessageInfo() ? e.GetMessageInfo()->Id() : -1;
    }
    ADD_FAILURE() << "nothing thrown";
    return -2;
}
