// A program outside the library that uses only the installed umbrella header.
#include <kivo/kivo.h>

#include <cstring>
#include <iostream>

int main() {
  using kivo::Data::Member;
  if (std::strcmp(Member::typeName(Member::kFloat), "float") != 0) return 1;
  std::cout << "kivo " << kivo::kVersionString << '\n';
  return 0;
}
