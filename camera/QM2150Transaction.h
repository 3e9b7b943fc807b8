// What the modules of the QM2150 driver share.
#ifndef ZR4410_CAMERA_QM2150TRANSACTION_H
#define ZR4410_CAMERA_QM2150TRANSACTION_H

#include <cstdint>

#include "camera/QM2150.h"

// VISCA selectors and categories.
inline constexpr uint8_t kSelectorCommand = 0x01;
inline constexpr uint8_t kSelectorInquiry = 0x09;
inline constexpr uint8_t kCategoryInterface = 0x00;
inline constexpr uint8_t kCategoryCamera = 0x04;
inline constexpr uint8_t kCategoryBlock = 0x7E;

// Clears the request and the camera reply record, then sets selector, category and at most 16 data bytes.
void PrepareRequest(uint8_t selector, uint8_t category, uint32_t count, const uint8_t* data);

// QM2150_ProcessVisca with the caller's log line for any failure but a stop request.
int ProcessVisca();

// 0 if the plain reply frame acknowledges the command, otherwise -1.
int CheckAcknowledged();

// QM2150_Inquiry and QM2150_ChecRespVisca with the usual caller's log lines.
int InquireAndJudge(uint8_t category, uint32_t length, const uint8_t* data, tVisca* reply);

#endif
