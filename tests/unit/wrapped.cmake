# Routines that never fail the way they are called today. CannotFailTest.cpp replaces them to make them fail.
set(wrapped_calls SnrQM2150_SnrMode2Str SnrQM2150_FocusPos MCU_Cmd2Str ZR4410_MsgQ_Close)
list(TRANSFORM wrapped_calls PREPEND LINKER:--wrap=)
