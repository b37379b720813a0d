#include <gmock/gmock.h>

#include "ace/Log_Msg.h"

int main(int argc, char** argv) {
  ::testing::InitGoogleMock(&argc, argv);
  return RUN_ALL_TESTS();
}
