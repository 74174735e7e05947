// to come
