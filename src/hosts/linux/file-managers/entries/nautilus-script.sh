#!/bin/sh
# Nautilus and Caja name the selected files in the environment.
exec @sender:shell@
