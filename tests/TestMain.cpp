#include <gtest/gtest.h>

#include <clocale>

int main(int argc, char ** argv)
{
    // Conversions go through the current C locale; tests pin a UTF-8 one where the runtime has it.
    if (!std::setlocale(LC_ALL, "C.UTF-8"))
        std::setlocale(LC_ALL, ".UTF8");
    testing::InitGoogleTest(&argc, argv);
    return RUN_ALL_TESTS();
}
