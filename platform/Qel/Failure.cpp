#include "Qel/Failure.h"

#include <new>
#include <system_error>

#include "Qel/Exception.h"

namespace Qel {

std::optional<std::string> failureOf(const std::function<void()>& step) {
  try {
    step();
    return {};
  } catch (const Exception& error) {
    return error.what();
  } catch (const std::system_error& error) {
    return error.what();
  } catch (const std::bad_alloc& error) {
    return error.what();
  }
}

}  // namespace Qel
