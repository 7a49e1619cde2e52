# SPDX-License-Identifier: MIT
"""What can go wrong with a box."""


class BoxError(Exception):
    """The box could not be started, has ended or did not do what it was told."""


class BoxTimeout(BoxError):
    """Something took longer than it was given."""
