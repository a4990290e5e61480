// Environment facts that tests need to know about the process they run in.
#ifndef VKS_TEST_ENV_H
#define VKS_TEST_ENV_H

#include <string>

namespace vks_test {
// True when the test process runs in its own mount namespace (set up by the shared test main).
// Otherwise false with the reason; fixtures that mount must fail with it rather than skip.
bool InPrivateMountNamespace(std::string* why);
}  // namespace vks_test

#endif
