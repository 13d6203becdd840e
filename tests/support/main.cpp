#include <gtest/gtest.h>

#include "support/child_process.h"

int main(int argc, char** argv) {
    int status = 0;
    if (runAsChild(argc, argv, status)) {
        return status;
    }
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
