#pragma once

#include <gtest/gtest.h>

#include <string>

namespace camclock::test {

/// Names the tests of a table after the `name` of their cases.
struct CaseName {
    template <class Case>
    std::string operator()(const ::testing::TestParamInfo<Case>& test) const {
        return test.param.name;
    }
};

}  // namespace camclock::test
