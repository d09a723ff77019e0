-- The shop's tables and goods. Everything is computed from row numbers, so each start holds the same data.
-- Pages show only what no request changes: "sold" is written by checkouts and shown nowhere.

CREATE TABLE category (id INT PRIMARY KEY, name VARCHAR(20) NOT NULL);
INSERT INTO category VALUES
    (0, 'tea'), (1, 'coffee'), (2, 'spices'), (3, 'honey'), (4, 'oil'), (5, 'pasta'), (6, 'rice'), (7, 'sweets');

CREATE TABLE item (
    id INT PRIMARY KEY, category INT NOT NULL, name VARCHAR(60) NOT NULL,
    cents INT NOT NULL, grams INT NOT NULL, sold BIGINT DEFAULT 0 NOT NULL);
INSERT INTO item (id, category, name, cents, grams)
    SELECT n.x, c.id,
           ARRAY['fine', 'strong', 'mild', 'green', 'dark', 'wild', 'smoked'][1 + MOD(n.x, 7)] || ' ' || c.name
               || ' ' || n.x,
           199 + MOD(n.x * 37, 1900), 100 + MOD(n.x * 53, 900)
    FROM SYSTEM_RANGE(1, 200) n JOIN category c ON c.id = MOD(n.x, 8);
CREATE INDEX item_category ON item (category);

CREATE TABLE review (id INT PRIMARY KEY, item INT NOT NULL, stars INT NOT NULL);
INSERT INTO review SELECT x, 1 + MOD(x, 200), 1 + MOD(x * 7, 5) FROM SYSTEM_RANGE(1, 1500);
CREATE INDEX review_item ON review (item);

CREATE TABLE sale (id INT PRIMARY KEY, item INT NOT NULL, sale_day INT NOT NULL, quantity INT NOT NULL);
INSERT INTO sale SELECT x, 1 + MOD(x * 13, 200), MOD(x, 90), 1 + MOD(x, 4) FROM SYSTEM_RANGE(1, 12000);

CREATE TABLE shipping_rate (up_to_grams INT PRIMARY KEY, cents INT NOT NULL);
INSERT INTO shipping_rate VALUES (500, 290), (1000, 390), (2000, 490), (5000, 690), (1000000, 990);

CREATE TABLE cart (id INT PRIMARY KEY);
INSERT INTO cart SELECT x FROM SYSTEM_RANGE(0, 63);
CREATE TABLE cart_line (cart INT, item INT, quantity INT NOT NULL, PRIMARY KEY (cart, item));
CREATE TABLE order_line (cart INT, item INT, quantity INT NOT NULL, cents INT NOT NULL, PRIMARY KEY (cart, item));

CREATE ALIAS shipping_cost FOR 'demo.shop.Shipping.cost';
