// The raw inquiry (-i) and the five system reports (-y).
#ifndef ZR4410_FRONTEND_REPORTS_H
#define ZR4410_FRONTEND_REPORTS_H

extern "C" {
// Sends the first giArgv1 bytes of gbArgv as an inquiry of category giCategoryCode and prints the reply. 0 or -1.
int Inquiry(void);

// Logs report giArgv1: 0 lens, 1 exposure, 2 day/night, 3 enlarged functions, 4 wide dynamic range.
// 0; -1 for another number; otherwise the failing step's result.
int SystemInquiry(void);

// Reports 3 and 4 alone.
int GetEnlargeFun1Inquiry(void);
int GetEnlargeFun2Inquiry(void);
}

#endif
