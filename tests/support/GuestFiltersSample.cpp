// Tests that are only ever listed, for the check of guest test filters
// (check-guest-filters-test.sh): plain, fixture and parameterised names.
#include <gtest/gtest.h>

namespace
{

class Beta : public testing::Test
{
};

class Gamma : public testing::TestWithParam<int>
{
};

} // namespace

TEST(Alpha, One)
{
    ADD_FAILURE() << "only listed, never run";
}

TEST(Alpha, Two)
{
    ADD_FAILURE() << "only listed, never run";
}

TEST_F(Beta, DhcpThree)
{
    ADD_FAILURE() << "only listed, never run";
}

TEST_P(Gamma, Four)
{
    ADD_FAILURE() << "only listed, never run: " << GetParam();
}

INSTANTIATE_TEST_SUITE_P(Sizes, Gamma, testing::Values(1, 2));
