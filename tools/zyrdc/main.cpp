#include <cstdio>
#include "zyrdc.h"
int main() { std::printf("%s\n", zyrdcGetLibVersion()->version); return 0; }
