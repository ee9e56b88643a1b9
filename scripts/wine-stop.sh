#!/usr/bin/env bash
# Stops the wineserver of qmload's private Wine prefix (see scripts/wine-env.sh).
. "$(dirname "$0")/wine-env.sh"
wine_stop
