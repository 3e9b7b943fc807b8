// What the modules of the QM2150 driver share.
#ifndef ZR4410_CAMERA_QM2150TRANSACTION_H
#define ZR4410_CAMERA_QM2150TRANSACTION_H

#include <unistd.h>

#include <cstdint>

#include "camera/QM2150.h"

// VISCA selectors and categories.
inline constexpr uint8_t kSelectorCommand = 0x01;
inline constexpr uint8_t kSelectorInquiry = 0x09;
inline constexpr uint8_t kCategoryInterface = 0x00;
inline constexpr uint8_t kCategoryCamera = 0x04;
inline constexpr uint8_t kCategoryBlock = 0x7E;

// One exchange of a new request with at most 16 data bytes: clears the request and the camera reply record, then
// QM2150_ProcessVisca with the caller's log line for any failure but a stop request.
int Transact(uint8_t selector, uint8_t category, uint32_t count, const uint8_t* data);

// QM2150_Inquiry and QM2150_ChecRespVisca, each with the caller's log line for a failure. *reply is cleared first.
int InquireAndJudge(uint8_t category, uint32_t length, const uint8_t* data, tVisca* reply);

// How a written value is confirmed: by at most two readings, each after this wait.
inline constexpr useconds_t kReadBackDelay = 50000;  // microseconds

// A result of a reading, in addition to those of support/Results.h: it succeeded but gave another value.
inline constexpr int kReadBackDiffers = 1;

// Calls readBack(first) until it returns something other than kReadBackDiffers, twice at most. Returns its last result.
template <typename ReadBack>
int ReadBackTwice(ReadBack readBack) {
  usleep(kReadBackDelay);
  if (const int result = readBack(true); result != kReadBackDiffers) {
    return result;
  }
  usleep(kReadBackDelay);
  return readBack(false);
}

#endif
