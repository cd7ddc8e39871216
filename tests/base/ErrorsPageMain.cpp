#include <cstdio>
#include <fstream>

#include "ErrorsPage.h"

int main(int argumentCount, char** arguments)
{
    if (argumentCount != 2) {
        std::fprintf(stderr, "usage: kv_errors_page FILE\n");
        return 2;
    }
    std::ofstream file(arguments[1], std::ios::binary);
    file << errorsPage();
    file.close();
    if (file)
        return 0;
    std::fprintf(stderr, "kv_errors_page: cannot write %s\n", arguments[1]);
    return 1;
}
