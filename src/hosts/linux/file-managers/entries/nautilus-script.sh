#!/bin/sh
# Nautilus names the selected files in the environment.
exec @sender:shell@
