// Constants and routines shared by the modules of the QM2150 driver.
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

// Clears the request and the camera reply record, fills the request with `count` data bytes (at most 16), and calls
// QM2150_ProcessVisca. Also logs "QM2150_ProcessVisca failed!" for a failure, but not for a stop request. Returns the
// result of QM2150_ProcessVisca.
int Transact(uint8_t selector, uint8_t category, uint32_t count, const uint8_t* data);

// Clears *reply, then calls QM2150_Inquiry and QM2150_ChecRespVisca and logs which of them fails; a stop request is not
// logged. Returns the result of the one that fails, or 0.
int InquireAndJudge(uint8_t category, uint32_t length, const uint8_t* data, tVisca* reply);

// A written value is confirmed by at most two read-backs, each after this delay.
inline constexpr useconds_t kReadBackDelay = 50000;  // microseconds

// A result of a read-back in addition to those of support/Results.h: it succeeded, but the value differs.
inline constexpr int kReadBackDiffers = 1;

// Calls readBack(first), and if it returns kReadBackDiffers calls it once more. Waits kReadBackDelay before each call.
// first: true in the first call. Returns the last result.
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
