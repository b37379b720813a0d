#include "task/task_handler.h"

Task_Handler::~Task_Handler() = default;

bool Task_Handler::open() {
  return true;
}

bool Task_Handler::close() {
  return true;
}
