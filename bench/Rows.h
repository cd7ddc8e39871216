#pragma once

#include <chrono>
#include <cstdio>
#include <string>
#include <vector>

/**
 * What a measuring program says: a line for people at once, and at the end a JSON list of
 * {"row", "against", "ours", "peer", "ratio", "limit", "unit"} where a file is named. A limit of 0 is none. What is
 * measured as a difference has "more" (ours less the peer's) instead of "ratio". Names hold nothing that JSON would
 * have to escape.
 */
class Rows
{
public:
    /** Writes `path` when the object goes; an empty path writes nothing. */
    explicit Rows(std::string path) : m_path(std::move(path)) {}
    ~Rows();
    Rows(const Rows&) = delete;
    Rows& operator=(const Rows&) = delete;

    void ratio(const std::string& name, const std::string& against, double ours, double peer, double limit,
               const char* unit);
    void difference(const std::string& name, const std::string& against, double ours, double peer, double limit,
                    const char* unit);

private:
    void add(const std::string& name, const std::string& against, double ours, double peer, double result, double limit,
             const char* unit, const char* kind);

    std::string m_path;
    std::string m_json;
};

/** The milliseconds that `work` takes. */
template <class Work>
double timeOf(Work&& work)
{
    const auto began = std::chrono::steady_clock::now();
    work();
    return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count();
}

double median(std::vector<double> values);

/** Ends the program, with what the system says, unless `good`. */
void check(bool good, const char* what);

/** Takes "--json FILE" out of the arguments and gives FILE, or nothing. */
std::string takeJsonOption(int& argc, char** argv);
