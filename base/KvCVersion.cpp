#include "base/KvCVersion.h"

#include <cstdio>

namespace {

bool isDigit(char c)
{
    return c >= '0' && c <= '9';
}

/** Reads the number at `place` cut to the width of `field` and moves `place` behind it; false when there is none. */
template <class Field>
bool readNumber(const char*& place, Field& field)
{
    if (!isDigit(*place))
        return false;
    unsigned int value = 0;
    for (; isDigit(*place); ++place)
        value = (value * 10 + static_cast<unsigned int>(*place - '0')) & 0xFFFF;
    field = static_cast<Field>(value);
    return true;
}

/** Reads `first` and the number behind it, if `first` stands at `place`; false when the number is missing. */
template <class Field>
bool readOptional(const char*& place, char first, Field& field)
{
    return *place != first || readNumber(++place, field);
}

bool readVersion(const char* place, KvNVersion::KvTVersion& version)
{
    if (!readNumber(place, version.mar) || *place++ != '.' || !readNumber(place, version.mir))
        return false;
    if (!readOptional(place, '.', version.mai))
        return false;
    if (*place == 'a' || *place == 'b') {
        version.spb = *place == 'a' ? 1 : 2;
        if (!readNumber(++place, version.spn))
            return false;
    }
    return readOptional(place, 'p', version.plv) && *place == '\0';
}

}  // namespace

KvCString KvCVersion::getAsString() const
{
    char text[48];
    char* place = text;
    const auto add = [&](const char* format, unsigned int number) {
        place += std::snprintf(place, static_cast<std::size_t>(text + sizeof text - place), format, number);
    };
    add("%u", m_version.mar);
    add(".%u", m_version.mir);
    if (m_version.mai != 0)
        add(".%u", m_version.mai);
    if (m_version.spb != 0)
        add(m_version.spb == 2 ? "b%u" : "a%u", m_version.spn);
    if (m_version.plv != 0)
        add("p%u", m_version.plv);
    return KvCString(text);
}

bool KvCVersion::setByString(const KvCString& text) noexcept
{
    m_version = {};
    if (readVersion(text.c_str(), m_version))
        return true;
    m_version = {};
    return false;
}

bool KvCVersion::operator<(const KvCVersion& other) const noexcept
{
    const auto rank = [](unsigned char spb) { return (spb + 2) % 3; };
    const KvNVersion::KvTVersion& a = m_version;
    const KvNVersion::KvTVersion& b = other.m_version;
    if (a.mar != b.mar)
        return a.mar < b.mar;
    if (a.mir != b.mir)
        return a.mir < b.mir;
    if (a.mai != b.mai)
        return a.mai < b.mai;
    if (rank(a.spb) != rank(b.spb))
        return rank(a.spb) < rank(b.spb);
    if (a.spn != b.spn)
        return a.spn < b.spn;
    return a.plv < b.plv;
}
