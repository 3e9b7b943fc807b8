/* Relay body and UART1 frame.
 *
 * Relay body, 36 bytes (L: payload length of the frame, 0..16; a camera reply is accepted with 3..19):
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
  uint8_t length;     /* count + 4: the VISCA packet */
  uint8_t address;    /* 0x81 */
  uint8_t selector;   /* 0x01 command, 0x09 inquiry */
  uint8_t category;   /* VISCA category */
  uint8_t count;      /* data bytes used; never transmitted */
  uint8_t data[16];   /* the first count used */
  uint8_t terminator; /* 0xFF */
  uint8_t checksum;
  uint8_t stop; /* 0x55 */
} ViscaRequestFrame;

/* Camera reply frame, 25 bytes. */
typedef struct {
  uint8_t start;
  uint8_t command;
  uint8_t length;     /* of the VISCA reply packet */
  uint8_t first;      /* first reply byte: 0x90 */
  uint8_t second;     /* second reply byte: 0x4y acknowledge, 0x5y completion, 0x6y error */
  uint8_t count;      /* reply bytes between the second byte and the terminator: length - 3 */
  uint8_t middle[16]; /* the first count used */
  uint8_t terminator;
  uint8_t checksum;
  uint8_t stop;
} ViscaReplyFrame;

/* Plain frame, 21 bytes: MCU requests and replies, and the daemon's acknowledgement of a camera command. The layout is
   fixed: checksum and stop are always last, whatever the length. */
typedef struct {
  uint8_t start;
  uint8_t command;
  uint8_t length;   /* 0..16 */
  uint8_t data[16]; /* the first length used */
  uint8_t checksum;
  uint8_t stop;
} PlainFrame;

extern uint8_t gbSeqId;        /* sequence id of the last request built; the reply must echo it */
extern uint8_t gbUart1Command; /* command code of the last request frame; a reply carries it plus 0x80 */

/* The checksum of a camera request frame. */
uint8_t QM2150_ChecksumViscaCmd(const ViscaRequestFrame* frame);

/* Wraps a camera request frame into the 36-byte body with the next sequence id: one more than the id that the body
   holds, 255 wraps to 0. 0; -57 when frame->length is above 16: header and id are then written, the frame is not. */
int QM2150_FillZR4410(const ViscaRequestFrame* frame, uint8_t* body);

/* Checks header and sequence id of a received body. 0 or -1. */
int QM2150_CheckZR4410Packet(const uint8_t* body);

/* Unwraps a camera reply frame from a received body; the frame is not cleared first.
   0; -57 when the VISCA packet is shorter than 3 or longer than 19 bytes. */
int QM2150_FillUart1Resp(const uint8_t* body, ViscaReplyFrame* frame);

/* Checks a camera reply frame. 0; -1 for a command code that does not answer the request; -58 for a bad start,
   checksum or stop. */
int QM2150_CheckUart1Resp(const ViscaReplyFrame* frame);

ZR4410_END_DECLS

#endif
