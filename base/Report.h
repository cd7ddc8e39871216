#pragma once

#include <cstddef>
#include <type_traits>
#include <utility>

#include "base/KvNMessage.h"
#include "platform/errorhandling/KvCErrorList.h"
#include "platform/errorhandling/KvCErrorManager.h"

/**
 * How every operation reports a failure: by one entry in the caller's list, after which it returns its failure value.
 * A callee has failed when the list grew across its call; the caller then adds a message of its own, so that one
 * failure leaves a chain from the innermost message outward.
 */
namespace KvNReport {

/** Answers whether a list grew since the watch was set. */
class Watch
{
public:
    explicit Watch(const KvCErrorList& errors) : m_errors(errors), m_before(errors.getErrorCount()) {}
    bool grew() const { return m_errors.getErrorCount() > m_before; }

private:
    const KvCErrorList& m_errors;
    const KvUInt32 m_before;
};

/** The process-wide list, for what happens where no caller's list is at hand. */
inline KvCErrorListPool& masterList()
{
    return KvCErrorManager::getMasterErrorList();
}

template <class T>
inline constexpr bool isNumber = std::is_integral_v<T> || std::is_enum_v<T>;

/** Whether arguments of these types fit the conversions: texts (`const char*`, or anything with `c_str()`) %s, whole
    numbers the others. */
template <class... Arguments>
constexpr bool argumentsFit(const char* argTypes)
{
    std::size_t length = 0;
    while (argTypes[length] != '\0')
        ++length;
    if (length != 2 * sizeof...(Arguments))
        return false;
    [[maybe_unused]] std::size_t i = 1;
    bool fit = true;
    ((fit = fit && (argTypes[i] == 's') == !isNumber<std::decay_t<Arguments>>, i += 2), ...);
    return fit;
}

/** The argument as setError takes it for the conversion `kind`. */
template <char kind, class T>
auto toArgument(const T& argument)
{
    if constexpr (kind == 'u' || kind == 'x')
        return static_cast<KvUInt32>(argument);
    else if constexpr (kind == 'd' || kind == 'i')
        return static_cast<KvInt32>(argument);
    else if constexpr (std::is_convertible_v<const T&, const char*>)
        return static_cast<const char*>(argument);
    else
        return argument.c_str();
}

/** Calls `target(code, argTypes, argument...)` with what setError takes. */
template <KvNMessage message, class Target, class... Arguments>
void pass(Target&& target, const Arguments&... arguments)
{
    constexpr const char* argTypes = argTypesOf(message);
    static_assert(argumentsFit<Arguments...>(argTypes), "the arguments do not fit the message's conversions");
    if constexpr (sizeof...(Arguments) == 0)
        target(static_cast<KvUInt32>(message), nullptr);
    else
        [&]<std::size_t... i>(std::index_sequence<i...>)
        {
            target(static_cast<KvUInt32>(message), argTypes, toArgument<argTypes[2 * i + 1]>(arguments)...);
        }
    (std::index_sequence_for<Arguments...>{});
}

template <KvNMessage message, class... Arguments>
void report(KvCErrorList& errors, unsigned long line, const char* origin, const Arguments&... arguments)
{
    pass<message>([&](KvUInt32 code, const char* argTypes,
                      auto... passed) { errors.setError(code, line, origin, argTypes, passed...); },
                  arguments...);
}

template <KvNMessage message, class... Arguments>
void warn(unsigned long line, const char* origin, const Arguments&... arguments)
{
    pass<message>([&](KvUInt32 code, const char* argTypes,
                      auto... passed) { KvCErrorManager::sendWarning(code, line, origin, argTypes, passed...); },
                  arguments...);
}

}  // namespace KvNReport

/** KV_REPORT(errors, Message, "Class::method", argument...): appends the message named by its enumerator of KvNMessage
    to the list `errors`. The compiler checks the arguments against the message's conversions. */
#define KV_REPORT(errors, message, origin, ...) \
    ::KvNReport::report<::KvNMessage::message>((errors), __LINE__, (origin)__VA_OPT__(, ) __VA_ARGS__)

/** KV_WARN(Message, "Class::method", argument...): delivers the message at once as a warning, without a list. */
#define KV_WARN(message, origin, ...) \
    ::KvNReport::warn<::KvNMessage::message>(__LINE__, (origin)__VA_OPT__(, ) __VA_ARGS__)
