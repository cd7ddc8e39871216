#include "bench/Rows.h"

#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <cstring>

Rows::~Rows()
{
    if (m_path.empty())
        return;
    std::FILE* file = std::fopen(m_path.c_str(), "w");
    check(file != nullptr, m_path.c_str());
    std::fprintf(file, "[%s\n]\n", m_json.c_str());
    check(std::fclose(file) == 0, m_path.c_str());
}

void Rows::ratio(const std::string& name, const std::string& against, double ours, double peer, double limit,
                 const char* unit)
{
    add(name, against, ours, peer, ours / peer, limit, unit, "ratio");
}

void Rows::difference(const std::string& name, const std::string& against, double ours, double peer, double limit,
                      const char* unit)
{
    add(name, against, ours, peer, ours - peer, limit, unit, "more");
}

void Rows::add(const std::string& name, const std::string& against, double ours, double peer, double result,
               double limit, const char* unit, const char* kind)
{
    std::printf("%-54s %12.3f %12.3f %-3s %s %.3f against %s", name.c_str(), ours, peer, unit, kind, result,
                against.c_str());
    if (limit > 0)
        std::printf(" (at most %.2f)", limit);
    std::printf("\n");
    std::fflush(stdout);
    char numbers[256];
    std::snprintf(numbers, sizeof numbers, "\"ours\": %.9g, \"peer\": %.9g, \"%s\": %.6g, \"unit\": \"%s\"", ours, peer,
                  kind, result, unit);
    m_json += (m_json.empty() ? "\n {\"row\": \"" : ",\n {\"row\": \"") + name + "\", \"against\": \"" + against +
              "\", " + numbers;
    if (limit > 0) {
        std::snprintf(numbers, sizeof numbers, ", \"limit\": %.6g", limit);
        m_json += numbers;
    }
    m_json += "}";
}

double median(std::vector<double> values)
{
    std::sort(values.begin(), values.end());
    const std::size_t half = values.size() / 2;
    return values.size() % 2 == 1 ? values[half] : (values[half - 1] + values[half]) / 2;
}

void check(bool good, const char* what)
{
    if (good)
        return;
    std::fprintf(stderr, "%s: %s\n", what, std::strerror(errno));
    std::exit(1);
}

std::string takeJsonOption(int& argc, char** argv)
{
    for (int i = 1; i + 1 < argc; ++i) {
        if (std::strcmp(argv[i], "--json") != 0)
            continue;
        const std::string file = argv[i + 1];
        std::copy(argv + i + 2, argv + argc + 1, argv + i);
        argc -= 2;
        return file;
    }
    return {};
}
