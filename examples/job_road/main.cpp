// Takes one print job down its whole road, in a temporary product folder, and shows every step.
// `job_road --read BASE` is the second process that looks at the job meanwhile.
#include <clocale>
#include <cstring>

#include "road.h"

int main(int count, char** arguments) {
  std::setlocale(LC_CTYPE, "C.UTF-8");
  if (count == 3 && std::strcmp(arguments[1], "--read") == 0) {
    return demo::ReadAsAnotherProcess(demo::Wide(arguments[2]));
  }
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
