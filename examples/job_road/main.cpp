// Takes one print job down its whole road, in a temporary product folder, and shows every step.
#include <clocale>

#include "road.h"

int main() {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  demo::Road road;
  demo::ReadTheSettings(road);
  demo::SettleTheUser(road);
  demo::DescribeThePrint(road);
  demo::HoldTheJob(road);
  demo::ChangeTheStatus(road);
  demo::FindTheServersName(road);
  demo::CallTheSharedPrinter(road);
  demo::SendTheFiles(road);
  demo::EndTheJob(road);
  demo::Chapter("The job has gone its road.");
  return 0;
}
