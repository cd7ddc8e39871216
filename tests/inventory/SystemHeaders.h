#pragma once

// Every header of the standard library, and those of the system where they are.
#include <algorithm>
#include <any>
#include <array>
#include <atomic>
#include <barrier>
#include <bit>
#include <bitset>
#include <cassert>
#include <cctype>
#include <cerrno>
#include <cfenv>
#include <cfloat>
#include <charconv>
#include <chrono>
#include <cinttypes>
#include <climits>
#include <clocale>
#include <cmath>
#include <codecvt>
#include <compare>
#include <complex>
#include <concepts>
#include <condition_variable>
#include <coroutine>
#include <csetjmp>
#include <csignal>
#include <cstdarg>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <cuchar>
#include <cwchar>
#include <cwctype>
#include <deque>
#include <exception>
#include <filesystem>
#include <forward_list>
#include <fstream>
#include <functional>
#include <future>
#include <initializer_list>
#include <iomanip>
#include <ios>
#include <iostream>
#include <istream>
#include <iterator>
#include <latch>
#include <limits>
#include <list>
#include <locale>
#include <map>
#include <memory>
#include <memory_resource>
#include <mutex>
#include <new>
#include <numbers>
#include <numeric>
#include <optional>
#include <ostream>
#include <queue>
#include <random>
#include <ranges>
#include <ratio>
#include <regex>
#include <scoped_allocator>
#include <semaphore>
#include <set>
#include <shared_mutex>
#include <source_location>
#include <span>
#include <sstream>
#include <stack>
#include <stdexcept>
#include <stop_token>
#include <streambuf>
#include <string>
#include <string_view>
#include <syncstream>
#include <system_error>
#include <thread>
#include <tuple>
#include <type_traits>
#include <typeindex>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <valarray>
#include <variant>
#include <vector>
#include <version>

#if __has_include(<arpa/inet.h>)
#include <arpa/inet.h>
#endif
#if __has_include(<arpa/nameser.h>)
#include <arpa/nameser.h>
#endif
#if __has_include(<byteswap.h>)
#include <byteswap.h>
#endif
#if __has_include(<dirent.h>)
#include <dirent.h>
#endif
#if __has_include(<dlfcn.h>)
#include <dlfcn.h>
#endif
#if __has_include(<endian.h>)
#include <endian.h>
#endif
#if __has_include(<err.h>)
#include <err.h>
#endif
#if __has_include(<fcntl.h>)
#include <fcntl.h>
#endif
#if __has_include(<fenv.h>)
#include <fenv.h>
#endif
#if __has_include(<glob.h>)
#include <glob.h>
#endif
#if __has_include(<grp.h>)
#include <grp.h>
#endif
#if __has_include(<ifaddrs.h>)
#include <ifaddrs.h>
#endif
#if __has_include(<langinfo.h>)
#include <langinfo.h>
#endif
#if __has_include(<limits.h>)
#include <limits.h>
#endif
#if __has_include(<linux/comedi.h>)
#include <linux/comedi.h>
#endif
#if __has_include(<linux/if_ether.h>)
#include <linux/if_ether.h>
#endif
#if __has_include(<linux/input.h>)
#include <linux/input.h>
#endif
#if __has_include(<linux/types.h>)
#include <linux/types.h>
#endif
#if __has_include(<math.h>)
#include <math.h>
#endif
#if __has_include(<net/if.h>)
#include <net/if.h>
#endif
#if __has_include(<netdb.h>)
#include <netdb.h>
#endif
#if __has_include(<netinet/in.h>)
#include <netinet/in.h>
#endif
#if __has_include(<netinet/ip.h>)
#include <netinet/ip.h>
#endif
#if __has_include(<netinet/tcp.h>)
#include <netinet/tcp.h>
#endif
#if __has_include(<poll.h>)
#include <poll.h>
#endif
#if __has_include(<pthread.h>)
#include <pthread.h>
#endif
#if __has_include(<pwd.h>)
#include <pwd.h>
#endif
#if __has_include(<resolv.h>)
#include <resolv.h>
#endif
#if __has_include(<sched.h>)
#include <sched.h>
#endif
#if __has_include(<semaphore.h>)
#include <semaphore.h>
#endif
#if __has_include(<signal.h>)
#include <signal.h>
#endif
#if __has_include(<spawn.h>)
#include <spawn.h>
#endif
#if __has_include(<sys/epoll.h>)
#include <sys/epoll.h>
#endif
#if __has_include(<sys/ioctl.h>)
#include <sys/ioctl.h>
#endif
#if __has_include(<sys/mman.h>)
#include <sys/mman.h>
#endif
#if __has_include(<sys/param.h>)
#include <sys/param.h>
#endif
#if __has_include(<sys/procfs.h>)
#include <sys/procfs.h>
#endif
#if __has_include(<sys/ptrace.h>)
#include <sys/ptrace.h>
#endif
#if __has_include(<sys/resource.h>)
#include <sys/resource.h>
#endif
#if __has_include(<sys/select.h>)
#include <sys/select.h>
#endif
#if __has_include(<sys/socket.h>)
#include <sys/socket.h>
#endif
#if __has_include(<sys/stat.h>)
#include <sys/stat.h>
#endif
#if __has_include(<sys/statvfs.h>)
#include <sys/statvfs.h>
#endif
#if __has_include(<sys/syscall.h>)
#include <sys/syscall.h>
#endif
#if __has_include(<sys/time.h>)
#include <sys/time.h>
#endif
#if __has_include(<sys/types.h>)
#include <sys/types.h>
#endif
#if __has_include(<sys/uio.h>)
#include <sys/uio.h>
#endif
#if __has_include(<sys/un.h>)
#include <sys/un.h>
#endif
#if __has_include(<sys/user.h>)
#include <sys/user.h>
#endif
#if __has_include(<sys/utsname.h>)
#include <sys/utsname.h>
#endif
#if __has_include(<sys/wait.h>)
#include <sys/wait.h>
#endif
#if __has_include(<syslog.h>)
#include <syslog.h>
#endif
#if __has_include(<termios.h>)
#include <termios.h>
#endif
#if __has_include(<time.h>)
#include <time.h>
#endif
#if __has_include(<unistd.h>)
#include <unistd.h>
#endif
#if __has_include(<utime.h>)
#include <utime.h>
#endif
#if __has_include(<values.h>)
#include <values.h>
#endif
#if __has_include(<wchar.h>)
#include <wchar.h>
#endif
