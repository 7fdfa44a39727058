// Chapter 3. The print information file.
#include "jobs/nemi_print_info_file_access.h"
#include "road.h"

namespace demo {

using vk::tq::CNemiPrintInfoFileAccess;
using vk::tq::NEMI_INF_FILE;

void DescribeThePrint(Road& road) {
  Chapter("3. What is to be printed");
  const std::wstring first = road.settings.NemiInfoDir + L"\\Job0001.tmp";
  CNemiPrintInfoFileAccess file(first.c_str());
  NEMI_INF_FILE& info = file.GetNemiInfData();
  info.ID = L"Job0001";
  info.DocumentName = L"見積書 <改訂①>.docx";
  info.UserName = road.account;
  info.Copies = L"2";
  info.Duplex = L"1";
  info.PageCount = L"12";
  Expect(file.WriteAll() == 1, "the print information is written");
  Show("NemiInfoDir:", road.product.Listing("NemiInfoDir"));

  Expect(file.Move(road.settings.CertNemiInfoDir.c_str()) == 1, "the file is moved");
  road.info_file = road.settings.CertNemiInfoDir + L"\\Job0001.xml";
  CNemiPrintInfoFileAccess moved(road.info_file.c_str());
  Expect(moved.ReadAll() == 1, "the moved file is read");
  Expect(moved.GetNemiInfData().DocumentName == info.DocumentName,
         "the document's name comes back");
  Say("Moved for authentication, and read there: " + Narrow(moved.GetNemiInfData().DocumentName) +
      ", " + Narrow(moved.GetNemiInfData().Copies) + " copies");
  Expect(file.ReadAll() == 0, "the old object still names the old place");
  Say("The object that moved it still names the old place, and says so:");
  road.Show("CertNemiInfoDir");
}

}  // namespace demo
