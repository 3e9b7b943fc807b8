# Calls that cannot fail today: CannotFailTest.cpp is put between them and their callers.
set(wrapped_calls SnrQM2150_SnrMode2Str SnrQM2150_FocusPos MCU_Cmd2Str ZR4410_MsgQ_Close)
list(TRANSFORM wrapped_calls PREPEND LINKER:--wrap=)
