#pragma once

#include "base/KvCString.h"
#include "platform/KvExport.h"
#include "platform/KvTypes.h"
#include "platform/errorhandling/KvCErrorList.h"

namespace KvNVersion {

/** The plain record of a version. */
struct KvTVersion
{
    unsigned char mar;   ///< major version
    unsigned char mir;   ///< minor version
    unsigned char mai;   ///< maintenance version
    unsigned char spb;   ///< special build: 0 release, 1 alpha, 2 beta
    unsigned short spn;  ///< number of the alpha or beta
    unsigned short plv;  ///< patch level
};

}  // namespace KvNVersion

/**
 * A version of hardware, firmware or software: six numbers, a text such as "3.1.2b4p7", and a packed form of 64 bits
 * that is the one stored and transmitted: from the most significant byte mar, mir, mai, spb, then spn and plv with 16
 * bits each. Alphas come before betas, betas before the release.
 */
class KV_EXPORT KvCVersion : public KvNAllocation::ObjectOf<KvCVersion>
{
public:
    /** 0.0 */
    KvCVersion() noexcept = default;
    KvCVersion(unsigned char mar, unsigned char mir, unsigned char mai, unsigned char spb, unsigned short spn,
               unsigned short plv) noexcept
        : m_version{mar, mir, mai, spb, spn, plv}
    {}
    /** From the packed form. */
    KvCVersion(unsigned long long packed) noexcept { setByULong64(packed); }
    KvCVersion(const KvNVersion::KvTVersion& version) noexcept : m_version(version) {}
    /** From the text form; 0.0 when the text is not one. */
    KvCVersion(const KvCString& text) noexcept { setByString(text); }

    unsigned char getMar() const noexcept { return m_version.mar; }
    unsigned char getMir() const noexcept { return m_version.mir; }
    unsigned char getMai() const noexcept { return m_version.mai; }
    unsigned char getSpb() const noexcept { return m_version.spb; }
    unsigned short getSpn() const noexcept { return m_version.spn; }
    unsigned short getPlv() const noexcept { return m_version.plv; }

    void setMar(unsigned char mar) noexcept { m_version.mar = mar; }
    void setMir(unsigned char mir) noexcept { m_version.mir = mir; }
    void setMai(unsigned char mai) noexcept { m_version.mai = mai; }
    void setSpb(unsigned char spb) noexcept { m_version.spb = spb; }
    void setSpn(unsigned short spn) noexcept { m_version.spn = spn; }
    void setPlv(unsigned short plv) noexcept { m_version.plv = plv; }

    /** The record inside this object. */
    const KvNVersion::KvTVersion& getAsVersion() const noexcept { return m_version; }

    unsigned long long getAsULong64() const noexcept
    {
        return static_cast<unsigned long long>(m_version.mar) << 56 |
               static_cast<unsigned long long>(m_version.mir) << 48 |
               static_cast<unsigned long long>(m_version.mai) << 40 |
               static_cast<unsigned long long>(m_version.spb) << 32 |
               static_cast<unsigned long long>(m_version.spn) << 16 | m_version.plv;
    }
    void setByULong64(unsigned long long packed) noexcept
    {
        m_version = {static_cast<unsigned char>(packed >> 56),  static_cast<unsigned char>(packed >> 48),
                     static_cast<unsigned char>(packed >> 40),  static_cast<unsigned char>(packed >> 32),
                     static_cast<unsigned short>(packed >> 16), static_cast<unsigned short>(packed)};
    }

    /** mar "." mir, then "." mai unless it is 0, "a" or "b" and spn unless this is a release, "p" plv unless it is 0.
     */
    KvCString getAsString() const;
    /** Reads the text form; numbers are cut to the width of their field. False, and 0.0, when anything in the text does
        not belong there. */
    bool setByString(const KvCString& text) noexcept;

    /** Equal when all six numbers are. */
    bool operator==(const KvCVersion& other) const noexcept { return getAsULong64() == other.getAsULong64(); }
    bool operator!=(const KvCVersion& other) const noexcept { return !(*this == other); }
    /** By mar, mir, mai, the rank of the special build, spn, plv. Kept: a special build of 3 or more ranks as the
        arithmetic (spb + 2) mod 3 has it, so that 3 and 0 are neither less than each other nor equal, and each is
        greater than the other. */
    bool operator<(const KvCVersion& other) const noexcept;
    bool operator>=(const KvCVersion& other) const noexcept { return !(*this < other); }
    bool operator<=(const KvCVersion& other) const noexcept { return *this < other || *this == other; }
    bool operator>(const KvCVersion& other) const noexcept { return !(*this < other) && !(*this == other); }

private:
    KvNVersion::KvTVersion m_version = {};
};

static_assert(sizeof(KvCVersion) == 8);
