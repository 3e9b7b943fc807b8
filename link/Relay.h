/* The relay body and the UART1 frame in it.
 *
 * Relay body, 36 bytes (L: payload length of the frame, 0..16; in a camera reply 3..19 is accepted):
 *
 *   0     0xAA            4    frame start 0xAA              7+L       checksum
 *   1     0xAA            5    command code (reply: + 0x80)  8+L       frame stop 0x55
 *   2     sequence id     6    payload length L              9+L..35   not written
 *   3     L + 5           7..  payload
 *
 * Checksum: start, command code, L, payload and checksum add up to 0 modulo 256.
 */
#ifndef ZR4410_LINK_RELAY_H
#define ZR4410_LINK_RELAY_H

#include <stdint.h>

#include "support/CDecls.h"

ZR4410_BEGIN_DECLS

/* Camera request frame, 26 bytes. */
typedef struct {
  uint8_t start;      /* 0xAA */
  uint8_t command;    /* 0x02 */
  uint8_t length;     /* of the VISCA packet: count + 4 */
  uint8_t address;    /* 0x81 */
  uint8_t selector;   /* 0x01 command, 0x09 inquiry */
  uint8_t category;   /* VISCA category */
  uint8_t count;      /* number of data bytes; not transmitted */
  uint8_t data[16];   /* only the first count bytes are used */
  uint8_t terminator; /* 0xFF */
  uint8_t checksum;
  uint8_t stop; /* 0x55 */
} ViscaRequestFrame;

/* Camera reply frame, 25 bytes. */
typedef struct {
  uint8_t start;      /* 0xAA */
  uint8_t command;    /* 0x82 */
  uint8_t length;     /* of the VISCA reply packet: count + 3 */
  uint8_t first;      /* first reply byte: 0x90 */
  uint8_t second;     /* second reply byte: 0x4y acknowledgement, 0x5y completion, 0x6y error */
  uint8_t count;      /* number of reply bytes between the second byte and the terminator, 0..16 */
  uint8_t middle[16]; /* only the first count bytes are used */
  uint8_t terminator; /* 0xFF */
  uint8_t checksum;
  uint8_t stop; /* 0x55 */
} ViscaReplyFrame;

/* Plain frame, 21 bytes: MCU requests and replies, and the daemon's acknowledgement of a camera command. In this record
   checksum and stop are always last, for every length. */
typedef struct {
  uint8_t start;    /* 0xAA */
  uint8_t command;  /* command code; a reply's is the request's plus 0x80 */
  uint8_t length;   /* of the data, 0..16 */
  uint8_t data[16]; /* only the first length bytes are used */
  uint8_t checksum;
  uint8_t stop; /* 0x55 */
} PlainFrame;

extern uint8_t gbSeqId;        /* sequence id of the last request built; the reply must echo it */
extern uint8_t gbUart1Command; /* command code of the last request frame; the reply's code is this plus 0x80 */

/* Returns the checksum of a camera request frame. If its count is above 16, the checksum covers 16 data bytes. */
uint8_t QM2150_ChecksumViscaCmd(const ViscaRequestFrame* frame);

/* Wraps a camera request frame in the 36-byte body with the next sequence id: one more than the id in the body; 255 is
   followed by 0. Returns 0; -57 if frame->length is above 16: then only the header and the id are written. */
int QM2150_FillZR4410(const ViscaRequestFrame* frame, uint8_t* body);

/* Checks that a received body starts with 0xAA 0xAA and carries the sequence id gbSeqId. Returns 0; -1 otherwise.
   Logs only a wrong sequence id. */
int QM2150_CheckZR4410Packet(const uint8_t* body);

/* Unwraps a camera reply frame from a received body. The frame is not cleared first.
   Returns 0; -57 if the VISCA packet is shorter than 3 or longer than 19 bytes: then only the fields before middle are
   written. */
int QM2150_FillUart1Resp(const uint8_t* body, ViscaReplyFrame* frame);

/* Checks a camera reply frame. Returns 0; -1 if its command code is not gbUart1Command plus 0x80; -58 if its start,
   checksum or stop is wrong. */
int QM2150_CheckUart1Resp(const ViscaReplyFrame* frame);

ZR4410_END_DECLS

#endif
