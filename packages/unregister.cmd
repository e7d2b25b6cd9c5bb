@echo off
rem Takes back what register.cmd did, for the same scope.
rem
rem   unregister.cmd [machine | user]
call "%~dp0register.cmd" /u %*
exit /b %errorlevel%
