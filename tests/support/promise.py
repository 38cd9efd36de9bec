# SPDX-License-Identifier: Apache-2.0
"""Ties a test to the sentences of docs/safety.md that it proves; system/promises_test.py holds the two together."""


def promise(*sentences):
    """For a test method: each sentence as it stands in the document, on one line."""
    def mark(test):
        test.promises = sentences
        return test
    return mark
