// Keeps the support library non-empty; what tests share stands in headers beside this file.
