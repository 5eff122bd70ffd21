#include "bindings.h"

#include <new>

#include "kit/text/text.h"

namespace quillon::web {
namespace {

std::vector<unsigned char> sent;
Reply reply;

}  // namespace

const Reply* Send(std::vector<unsigned char> bytes) {
  sent = std::move(bytes);
  reply = {sent.size(), sent.data(), false};
  return &reply;
}

const Reply* Send(const kit::Json& json) {
  const std::string text = kit::JsonText(json);
  return Send(std::vector<unsigned char>(text.begin(), text.end()));
}

const Reply* SendFailure() {
  std::string message = "there is not enough memory";
  try {
    throw;
  } catch (const std::bad_alloc&) {
  } catch (const std::exception& error) {
    message = error.what();
  }
  Send(std::vector<unsigned char>(message.begin(), message.end()));
  reply.hasFailed = true;
  return &reply;
}

}  // namespace quillon::web
