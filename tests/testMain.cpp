#include <gtest/gtest.h>

#include "support/fakeUser.h"

int main(int argc, char** argv) {
    const int status = fakeUser::rerunUnderFakeUser(argc, argv);
    if (status >= 0) {
        return status;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
