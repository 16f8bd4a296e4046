"""Plays scenarios on the simulated notebook, checks what came of them, and tells them as a story."""
